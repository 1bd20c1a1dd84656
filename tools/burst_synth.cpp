#include "burst_synth.h"

#include "support/synthetic.h"

#include <algorithm>
#include <cmath>

namespace trvtool {

namespace {

// The deterministic generator of the test images, with float variates.
class Random : public trvtest::Rng {
public:
    using trvtest::Rng::Rng;
    float unit() { return static_cast<float>(next() >> 8) * (1.0f / 16777216.0f); }
    // Sum of 12 uniforms minus 6: mean 0, variance 1, exactly reproducible.
    float gaussian() {
        float sum = 0.0f;
        for (int i = 0; i < 12; ++i) sum += unit();
        return sum - 6.0f;
    }
};

int clampCoord(int v, int size) { return v < 0 ? 0 : (v >= size ? size - 1 : v); }

uint8_t toByte(float v) {
    const float r = std::floor(v + 0.5f);
    return static_cast<uint8_t>(r < 0.0f ? 0.0f : (r > 255.0f ? 255.0f : r));
}

// One plane of the frame: the scene at (x + dx, y + dy), darkened, with the
// moving square painted in `objectValue`.
struct Square {
    int x0, y0, size;
    bool contains(int x, int y) const { return x >= x0 && x < x0 + size && y >= y0 && y < y0 + size; }
};

std::vector<float> renderPlane(const std::vector<uint8_t>& scene, int w, int h, int dx, int dy, float exposure,
                               const Square* object, float objectValue, bool chroma) {
    std::vector<float> out(static_cast<size_t>(w) * h);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const int sx = clampCoord(x + dx, w), sy = clampCoord(y + dy, h);
            float v = (object && object->contains(sx, sy)) ? objectValue : scene[static_cast<size_t>(sy) * w + sx];
            // Chroma darkens around its neutral 128, luma towards 0.
            out[static_cast<size_t>(y) * w + x] = chroma ? 128.0f + (v - 128.0f) * exposure : v * exposure;
        }
    }
    return out;
}

void boxBlurRows(std::vector<float>& plane, int w, int h, int radius) {
    std::vector<float> row(static_cast<size_t>(w));
    for (int y = 0; y < h; ++y) {
        float* line = &plane[static_cast<size_t>(y) * w];
        for (int x = 0; x < w; ++x) {
            float sum = 0.0f;
            for (int k = -radius; k <= radius; ++k) sum += line[clampCoord(x + k, w)];
            row[x] = sum / static_cast<float>(2 * radius + 1);
        }
        std::copy(row.begin(), row.end(), line);
    }
}

}  // namespace

const std::vector<NoiseLevel>& noiseLevels() {
    static const std::vector<NoiseLevel> levels = {
        {"low", 0.5f, 2.0f}, {"medium", 1.0f, 4.0f}, {"high", 2.0f, 6.0f}};
    return levels;
}

SyntheticBurst synthesiseBurst(const Yuv444& scene, const BurstRecipe& recipe) {
    const int w = scene.width, h = scene.height;
    Random rng(recipe.seed);
    SyntheticBurst burst;
    burst.width = w;
    burst.height = h;
    const int side = std::max(8, std::min(w, h) / 8);
    const int startX = rng.uniform(0, std::max(0, w / 2 - side)), startY = rng.uniform(0, std::max(0, h - side));
    const int stepX = std::max(2, w / 64);
    const float objectY = static_cast<float>(rng.uniform(180, 235));
    const float objectCb = static_cast<float>(rng.uniform(60, 100)), objectCr = static_cast<float>(rng.uniform(160, 200));

    for (int f = 0; f < recipe.frames; ++f) {
        const int dx = f == 0 ? 0 : rng.uniform(-recipe.maxShift, recipe.maxShift);
        const int dy = f == 0 ? 0 : rng.uniform(-recipe.maxShift, recipe.maxShift);
        burst.shiftX.push_back(dx);
        burst.shiftY.push_back(dy);
        const Square object{startX + f * stepX, startY, side};
        const Square* obj = recipe.movingObject ? &object : nullptr;
        Yuv444 cleanPlanes, noisyPlanes;
        cleanPlanes.width = noisyPlanes.width = w;
        cleanPlanes.height = noisyPlanes.height = h;
        const std::vector<uint8_t>* sources[3] = {&scene.y, &scene.cb, &scene.cr};
        const float objectValues[3] = {objectY, objectCb, objectCr};
        std::vector<uint8_t>* cleanOut[3] = {&cleanPlanes.y, &cleanPlanes.cb, &cleanPlanes.cr};
        std::vector<uint8_t>* noisyOut[3] = {&noisyPlanes.y, &noisyPlanes.cb, &noisyPlanes.cr};
        for (int p = 0; p < 3; ++p) {
            const bool chroma = p > 0;
            std::vector<float> plane = renderPlane(*sources[p], w, h, dx, dy, recipe.exposure, obj, objectValues[p], chroma);
            if (f == recipe.blurredFrame) boxBlurRows(plane, w, h, 3);
            cleanOut[p]->resize(plane.size());
            noisyOut[p]->resize(plane.size());
            const float share = chroma ? 0.5f : 1.0f;
            for (size_t i = 0; i < plane.size(); ++i) {
                const float signal = chroma ? 64.0f * recipe.exposure : plane[i];
                const float sigma = share * std::sqrt(recipe.shotGain * std::max(signal, 0.0f) +
                                                      recipe.readNoise * recipe.readNoise);
                (*cleanOut[p])[i] = toByte(plane[i]);
                (*noisyOut[p])[i] = toByte(plane[i] + sigma * rng.gaussian());
            }
        }
        burst.clean.push_back(yuv444ToNv21(cleanPlanes));
        burst.noisy.push_back(yuv444ToNv21(noisyPlanes));
    }
    return burst;
}

}  // namespace trvtool

#include "metrics.h"

#include <cmath>
#include <limits>
#include <vector>

namespace trvtool {

namespace {

constexpr int kRadius = 5;  // 11 taps
constexpr double kSigma = 1.5;

std::vector<double> gaussianTaps() {
    std::vector<double> taps(2 * kRadius + 1);
    double sum = 0.0;
    for (int k = -kRadius; k <= kRadius; ++k) sum += taps[k + kRadius] = std::exp(-(k * k) / (2.0 * kSigma * kSigma));
    for (double& t : taps) t /= sum;
    return taps;
}

// Gaussian-weighted mean of `plane` over every fully inside window; the
// result is (w - 10) x (h - 10).
std::vector<double> windowMeans(const std::vector<double>& plane, int w, int h, const std::vector<double>& taps) {
    const int ow = w - 2 * kRadius, oh = h - 2 * kRadius;
    std::vector<double> rows(static_cast<size_t>(ow) * h);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < ow; ++x) {
            double s = 0.0;
            for (int k = 0; k <= 2 * kRadius; ++k) s += taps[k] * plane[static_cast<size_t>(y) * w + x + k];
            rows[static_cast<size_t>(y) * ow + x] = s;
        }
    }
    std::vector<double> out(static_cast<size_t>(ow) * oh);
    for (int y = 0; y < oh; ++y) {
        for (int x = 0; x < ow; ++x) {
            double s = 0.0;
            for (int k = 0; k <= 2 * kRadius; ++k) s += taps[k] * rows[static_cast<size_t>(y + k) * ow + x];
            out[static_cast<size_t>(y) * ow + x] = s;
        }
    }
    return out;
}

}  // namespace

double lumaPsnr(const uint8_t* a, const uint8_t* b, int width, int height) {
    const size_t n = static_cast<size_t>(width) * height;
    double squared = 0.0;
    for (size_t i = 0; i < n; ++i) {
        const double d = static_cast<double>(a[i]) - b[i];
        squared += d * d;
    }
    if (n == 0 || squared == 0.0) return std::numeric_limits<double>::infinity();
    return 10.0 * std::log10(255.0 * 255.0 * static_cast<double>(n) / squared);
}

double lumaSsim(const uint8_t* a, const uint8_t* b, int width, int height) {
    if (width <= 2 * kRadius || height <= 2 * kRadius) return std::numeric_limits<double>::quiet_NaN();
    const size_t n = static_cast<size_t>(width) * height;
    std::vector<double> x(n), y(n), xx(n), yy(n), xy(n);
    for (size_t i = 0; i < n; ++i) {
        x[i] = a[i];
        y[i] = b[i];
        xx[i] = x[i] * x[i];
        yy[i] = y[i] * y[i];
        xy[i] = x[i] * y[i];
    }
    const std::vector<double> taps = gaussianTaps();
    const auto mx = windowMeans(x, width, height, taps), my = windowMeans(y, width, height, taps);
    const auto mxx = windowMeans(xx, width, height, taps), myy = windowMeans(yy, width, height, taps);
    const auto mxy = windowMeans(xy, width, height, taps);
    const double c1 = (0.01 * 255) * (0.01 * 255), c2 = (0.03 * 255) * (0.03 * 255);
    double total = 0.0;
    for (size_t i = 0; i < mx.size(); ++i) {
        const double varX = mxx[i] - mx[i] * mx[i], varY = myy[i] - my[i] * my[i], cov = mxy[i] - mx[i] * my[i];
        total += ((2 * mx[i] * my[i] + c1) * (2 * cov + c2)) /
                 ((mx[i] * mx[i] + my[i] * my[i] + c1) * (varX + varY + c2));
    }
    return total / static_cast<double>(mx.size());
}

}  // namespace trvtool

namespace trvtool {

LumaQuality lumaQuality(const uint8_t* result, const uint8_t* clean, int width, int height) {
    return {lumaPsnr(result, clean, width, height), lumaSsim(result, clean, width, height)};
}

}  // namespace trvtool

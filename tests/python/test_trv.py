"""The trv module: the same bytes as the trv tool on the same input, its
report, its refusals and the example script."""
import os
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest
from PIL import Image

import trv

ROOT = Path(__file__).resolve().parents[2]
TOOL = os.environ.get("TRV_TOOL")
needs_tool = pytest.mark.skipif(not TOOL, reason="the trv tool is not built")


def dark_pictures(frames=4, seed=1):
    """A dark, noisy handheld burst of RGB pictures with odd sides."""
    picture = np.asarray(Image.open(ROOT / "data" / "coffee.png").convert("RGB"))[:257, :385] * 0.35
    rng = np.random.default_rng(seed)
    shifted = [np.roll(picture, rng.integers(-3, 4, 2) * (f > 0), axis=(0, 1)) for f in range(frames)]
    return [np.clip(p + rng.normal(0, 3, p.shape), 0, 255).astype(np.uint8) for p in shifted]


PICTURES = dark_pictures()
BURST = [trv.rgb_to_nv21(p) for p in PICTURES]  # 384 x 256 NV21
F = BURST[0]
H, W = 256, 384


def to_layout(nv21, layout):
    """An NV21 frame in another input layout, each chroma row twice."""
    y, vu = nv21[:H], nv21[H:].reshape(H // 2, W // 2, 2).repeat(2, axis=0)
    v, u = vu[..., 0], vu[..., 1]
    return {"nv21": nv21,
            "nv16": np.vstack([y, np.dstack([u, v]).reshape(H, W)]),
            "yv16": np.vstack([y, v.reshape(-1, W), u.reshape(-1, W)]),
            "yuyv": np.dstack([y[:, 0::2], u, y[:, 1::2], v]).reshape(H, 2 * W)}[layout]


def run_tool(*args):
    subprocess.run([TOOL, *map(str, args)], check=True, capture_output=True)


@needs_tool
@pytest.mark.parametrize("layout", ["nv21", "nv16", "yv16", "yuyv"])
def test_fuse_gives_the_tools_bytes_and_reports(layout, tmp_path):
    frames = [to_layout(f, layout) for f in BURST]
    for i, frame in enumerate(frames):
        frame.tofile(tmp_path / f"{i}.raw")
    run_tool("fuse", "--format", layout, "--size", f"{W}x{H}", "-o", tmp_path / "out.nv21",
             *(tmp_path / f"{i}.raw" for i in range(len(frames))))
    expected = np.fromfile(tmp_path / "out.nv21", np.uint8).reshape(H * 3 // 2, W)
    frame, report = trv.fuse(frames, layout, report=True)
    assert np.array_equal(frame, expected)
    assert np.array_equal(trv.fuse([f.tobytes() for f in frames], layout, size=(W, H)), expected)
    assert report["order"][0] == report["reference"] and report["vectors"][0] == (0, 0)
    assert report["fates"].count("fused") == report["frames_fused"] == len(report["order"]) > 1


def nv12(nv21):
    return np.vstack([nv21[:H], nv21[H:].reshape(-1, 2)[:, ::-1].reshape(-1, W)])


@needs_tool
@pytest.mark.parametrize("command, frames, operation", [
    (["fuse"], len(PICTURES), trv.fuse),
    (["retinex"], 1, lambda burst: trv.retinex(burst[0])),
    (["tone", "--id", "1", "--level", "120"], 1, lambda burst: trv.tone(nv12(burst[0]), 1, 120)),
])
def test_pictures_give_the_tools_picture(command, frames, operation, tmp_path):
    paths = [tmp_path / f"{i}.png" for i in range(frames)]
    for path, picture in zip(paths, PICTURES):
        Image.fromarray(picture).save(path)
    run_tool(*command, "-o", tmp_path / "out.png", *paths)
    assert np.array_equal(trv.nv21_to_rgb(operation(BURST[:frames])), np.asarray(Image.open(tmp_path / "out.png")))


# Refusals carry the library's status; arguments the library never sees
# raise plain Python errors.
@pytest.mark.parametrize("call, error, status, text", [
    (lambda: trv.fuse([F] * 7), trv.Error, 101, "1 to 6 frames"),
    (lambda: trv.fuse([F, None]), trv.Error, 100, "is null"),
    (lambda: trv.fuse([F, F[:, :128]]), trv.Error, 102, "same width and height"),
    (lambda: trv.fuse([F], size=(2**40, 2**40)), trv.Error, 103, "31 bits"),
    (lambda: trv.tone(F, enhance_id=4), trv.Error, 132, "id must be"),
    (lambda: trv.retinex(F[:0]), trv.Error, 111, "positive and even"),
    (lambda: trv.fuse([F.astype(np.int16)]), TypeError, None, ""),
    (lambda: trv.fuse([F], "rgb"), ValueError, None, ""),
    (lambda: trv.fuse([F[:-1]]), ValueError, None, ""),
    (lambda: trv.rgb_to_nv21(F), ValueError, None, ""),
])
def test_refusals_and_arguments_the_library_never_sees(call, error, status, text):
    with pytest.raises(error, match=text) as raised:
        call()
    assert getattr(raised.value, "status", None) == status
    assert status is None or f"(status {status})" in str(raised.value)


def test_example_fuses_a_picture(tmp_path):
    Image.fromarray(PICTURES[0]).save(tmp_path / "in.png")
    done = subprocess.run([sys.executable, ROOT / "examples" / "fuse_pngs.py", "-o", tmp_path / "out.png",
                           tmp_path / "in.png"], capture_output=True, text=True, check=True)
    assert "fused" in done.stdout and (tmp_path / "out.png").exists()

"""The trv module: the same bytes as the trv tool on the same input, its
report, its refusals, threads calling at once, and the example script."""
import os
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
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


@needs_tool
def test_pictures_to_fused_picture_as_the_tool(tmp_path):
    paths = [tmp_path / f"{i}.png" for i in range(len(PICTURES))]
    for path, picture in zip(paths, PICTURES):
        Image.fromarray(picture).save(path)
    run_tool("fuse", "-o", tmp_path / "fused.png", *paths)
    burst = [trv.rgb_to_nv21(np.asarray(Image.open(path))) for path in paths]
    assert np.array_equal(trv.nv21_to_rgb(trv.fuse(burst)), np.asarray(Image.open(tmp_path / "fused.png")))


def nv12(nv21):
    return np.vstack([nv21[:H], nv21[H:].reshape(-1, 2)[:, ::-1].reshape(-1, W)])


@needs_tool
@pytest.mark.parametrize("command, operation", [
    (["retinex"], trv.retinex),
    (["tone", "--id", "1", "--level", "120"], lambda f: trv.tone(nv12(f), 1, 120)),
])
def test_operations_give_the_tools_picture(command, operation, tmp_path):
    Image.fromarray(PICTURES[0]).save(tmp_path / "in.png")
    run_tool(*command, tmp_path / "in.png", "-o", tmp_path / "out.png")
    assert np.array_equal(trv.nv21_to_rgb(operation(F)), np.asarray(Image.open(tmp_path / "out.png")))


@pytest.mark.parametrize("call, status, text", [
    (lambda: trv.fuse([F] * 7), 101, "1 to 6 frames"),
    (lambda: trv.fuse([F, None]), 100, "is null"),
    (lambda: trv.fuse([F, F[:, :128]]), 102, "same width and height"),
    (lambda: trv.fuse([np.zeros((93, 62), np.uint8)]), 103, "at least 64 x 64"),
    (lambda: trv.fuse([F], size=(2**40, 2**40)), 103, "31 bits"),
    (lambda: trv.tone(F, enhance_id=4), 132, "id must be"),
    (lambda: trv.retinex(F[:0]), 111, "positive and even"),
])
def test_refusals_carry_the_library_status(call, status, text):
    with pytest.raises(trv.Error, match=text) as refused:
        call()
    assert refused.value.status == status and f"(status {status})" in str(refused.value)


@pytest.mark.parametrize("call, error", [
    (lambda: trv.fuse([F.astype(np.int16)]), TypeError),
    (lambda: trv.fuse([F], "rgb"), ValueError),
    (lambda: trv.fuse([F[:-1]]), ValueError),
    (lambda: trv.rgb_to_nv21(F), ValueError),
])
def test_arguments_the_library_never_sees(call, error):
    with pytest.raises(error) as raised:
        call()
    assert not isinstance(raised.value, trv.Error)


def test_threads_at_once_get_their_serial_results():
    jobs = [lambda: trv.fuse(BURST), lambda: trv.tone(F, 2), lambda: trv.retinex(F)] * 3
    serial = [job() for job in jobs]
    with ThreadPoolExecutor(4) as pool:
        parallel = list(pool.map(lambda job: job(), jobs))
    assert all(np.array_equal(a, b) for a, b in zip(serial, parallel))


def test_example_fuses_a_picture(tmp_path):
    Image.fromarray(PICTURES[0]).save(tmp_path / "in.png")
    done = subprocess.run([sys.executable, ROOT / "examples" / "fuse_pngs.py", "-o", tmp_path / "out.png",
                           tmp_path / "in.png"], capture_output=True, text=True, check=True)
    assert "fused" in done.stdout and (tmp_path / "out.png").exists()

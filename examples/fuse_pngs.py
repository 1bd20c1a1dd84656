#!/usr/bin/env python3
"""Fuse a burst with the trv module and print the PSNR before and after.

With one picture (by default the demo photograph), makes a dark, noisy
handheld burst of it (darkened to 35 %, shifted by up to 8 pixels, shot and
read noise), fuses it, and prints the luma PSNR of the noisy reference frame
and of the fused frame against the clean frame the reference saw. With
several pictures, fuses them as they are. Writes the fused picture.

    PYTHONPATH=build/host/python python3 examples/fuse_pngs.py -o fused.png
    PYTHONPATH=build/host/python python3 examples/fuse_pngs.py -o fused.png b0.png b1.png b2.png
"""
import argparse
from pathlib import Path

import numpy as np
from PIL import Image

import trv

DEMO_PICTURE = Path(__file__).resolve().parents[1] / "data" / "dandelions.png"


def load_rgb(path):
    return np.asarray(Image.open(path).convert("RGB"))


def synthesise_burst(picture, frames, seed):
    """Clean and noisy NV21 frames of the darkened picture, each shifted."""
    rng = np.random.default_rng(seed)
    dark = picture * 0.35
    clean, noisy = [], []
    for f in range(frames):
        scene = np.roll(dark, rng.integers(-8, 9, 2) if f else (0, 0), axis=(0, 1))
        sigma = np.sqrt(1.0 * scene + 4.0 ** 2)  # shot noise (gain 1) and read noise 4
        shot = scene + sigma * rng.standard_normal(scene.shape)
        clean.append(trv.rgb_to_nv21(np.rint(scene).astype(np.uint8)))
        noisy.append(trv.rgb_to_nv21(np.clip(np.rint(shot), 0, 255).astype(np.uint8)))
    return clean, noisy


def luma_psnr(frame, clean):
    luma = frame.shape[0] * 2 // 3
    mse = np.mean((frame[:luma].astype(np.float64) - clean[:luma]) ** 2)
    return 10 * np.log10(255 ** 2 / mse) if mse else float("inf")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("pictures", nargs="*", type=Path, help="one picture to make a burst of, or a burst")
    parser.add_argument("-o", "--out", type=Path, default=Path("fused.png"), help="fused picture (PNG)")
    parser.add_argument("--frames", type=int, default=6, help="frames of the made burst (1..6)")
    parser.add_argument("--seed", type=int, default=1)
    args = parser.parse_args()

    pictures = args.pictures or [DEMO_PICTURE]
    if len(pictures) > 1:
        clean, burst = None, [trv.rgb_to_nv21(load_rgb(p)) for p in pictures]
    else:
        clean, burst = synthesise_burst(load_rgb(pictures[0]), args.frames, args.seed)
    fused, report = trv.fuse(burst, report=True)

    reference = report["reference"]
    print(f"reference frame {reference}, {report['frames_fused']} of {len(burst)} frames fused, "
          f"fates {report['fates']}")
    if clean is not None:
        print(f"luma PSNR: noisy reference {luma_psnr(burst[reference], clean[reference]):.2f} dB, "
              f"fused {luma_psnr(fused, clean[reference]):.2f} dB")
    Image.fromarray(trv.nv21_to_rgb(fused)).save(args.out)
    print(f"wrote {args.out}")


if __name__ == "__main__":
    main()

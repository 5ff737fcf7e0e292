#!/usr/bin/python3
"""Live stacking: takes exposures, lays each on the first one, and keeps their running mean.

    python3 live_stack.py --frames 60 --exposure 2 m42.fits

Without a camera, with a simulated one whose mount drifts by half a pixel a second:

    vscsim run --camera VSC470MC:drift=0.5 -- python3 live_stack.py m42.fits

Each frame is registered by phase correlation: stars that moved turn the phases of the picture's
waves, and the transform of these turns has its peak at the shift. The mean is written at the end,
and on Control-C: the stack is what came until then.
"""

from __future__ import annotations

import argparse
import os
import sys

import numpy as np
import numpy.typing as npt
import vsccam
from astropy.io import fits

Picture = npt.NDArray[np.float32]


def luminance(frame: vsccam.Frame, colour: bool) -> Picture:
    """The frame without its mosaic: a pixel for each 2 x 2, in half the size."""
    picture = frame.astype(np.float32)
    if not colour:
        return picture
    height, width = (side // 2 * 2 for side in picture.shape)
    blocks = picture[:height, :width].reshape(height // 2, 2, width // 2, 2)
    means: Picture = blocks.mean(axis=(1, 3))
    return means


def noise(picture: Picture) -> float:
    """Of the background: the deviation of what no star has, which the median finds."""
    return float(1.4826 * np.median(np.abs(picture - np.median(picture))))


class Registration:
    """Finds by how much pictures are shifted against the first one."""

    def __init__(self, first: Picture, side: int = 512) -> None:
        height, width = first.shape
        self._rows = slice(max((height - side) // 2, 0), (height + side) // 2)
        self._columns = slice(max((width - side) // 2, 0), (width + side) // 2)
        part = first[self._rows, self._columns]
        # Without it, the borders would be the strongest that stays in place.
        self._window = np.hanning(part.shape[0])[:, None] * np.hanning(part.shape[1])
        self._first = self._transform(first)

    def _transform(self, picture: Picture) -> npt.NDArray[np.complex128]:
        part = picture[self._rows, self._columns]
        stars = np.clip(part - np.median(part) - 5 * noise(part), 0, None)
        return np.fft.rfft2(np.sqrt(stars) * self._window)

    def shift(self, picture: Picture) -> tuple[float, float]:
        """Down and to the right, in pixels, to a fraction of one."""
        cross = self._transform(picture) * self._first.conj()
        shape = self._window.shape
        peaks = np.fft.irfft2(cross / (np.abs(cross) ** 0.5 + 1e-9), shape)
        peak = np.unravel_index(np.argmax(peaks), shape)
        return self._top(peaks[:, peak[1]], peak[0]), self._top(peaks[peak[0]], peak[1])

    @staticmethod
    def _top(line: npt.NDArray[np.float64], peak: np.intp) -> float:
        """A parabola through a peak and its neighbours has its top between pixels."""
        side = len(line)
        before, at, after = line[peak - 1], line[peak], line[(peak + 1) % side]
        place = float(peak + (before - after) / (2 * (before - 2 * at + after)))
        return place - side if place > side / 2 else place


class Stack:
    """The running mean of pictures, on the place of the first."""

    def __init__(self, shape: tuple[int, ...]) -> None:
        self._sum = np.zeros(shape)
        self._count = np.zeros(shape, np.uint32)

    def add(self, picture: Picture, shift: tuple[float, float]) -> None:
        """Whole pixels are moved: what lies between two of them would blur, and hide noise."""
        parts = [self._overlap(round(by), side) for by, side in zip(shift, picture.shape)]
        there = tuple(part[0] for part in parts)
        self._sum[there] += picture[tuple(part[1] for part in parts)]
        self._count[there] += 1

    @staticmethod
    def _overlap(by: int, side: int) -> tuple[slice, slice]:
        """Where it comes to lie, and which part of the picture that is."""
        here = slice(max(-by, 0), max(min(side - by, side), 0))
        return here, slice(here.start + by, max(here.stop + by, 0))

    def mean(self) -> Picture:
        """Zero where no picture reached."""
        mean: Picture = (self._sum / np.maximum(self._count, 1)).astype(np.float32)
        return mean


def save(path: str, mean: Picture, frames: int, camera: vsccam.Camera) -> None:
    """Under a temporary name first, so that nobody ever sees half of it."""
    header = fits.Header()
    header["NCOMBINE"] = (frames, "frames in the mean")
    header["EXPTIME"] = (frames * camera.exposure, "[s] of all frames")
    header["GAIN"] = camera.gain
    header["INSTRUME"] = camera.info.model
    header["ROWORDER"] = "TOP-DOWN"
    temporary = f"{path}.part"
    fits.PrimaryHDU(mean, header).writeto(temporary, overwrite=True)
    os.replace(temporary, path)


def main() -> int:
    parser = argparse.ArgumentParser(description="Stacks exposures while they are taken.")
    parser.add_argument("output", help="FITS file for the mean")
    parser.add_argument("--camera", help="a model or a port (usb:1-2.3); else the first one")
    parser.add_argument("--frames", type=int, default=30)
    parser.add_argument("--exposure", type=float, default=1.0, help="of each frame, in seconds")
    parser.add_argument("--gain", type=int, default=200)
    parser.add_argument("--no-align", action="store_true", help="leave frames where they are")
    options = parser.parse_args()

    with vsccam.Camera(options.camera) as camera:
        camera.gain = options.gain
        camera.exposure = options.exposure
        if camera.controls["offset"].available:
            camera.offset = 40  # so that black does not cut off half of the noise
        first = luminance(camera.expose(), camera.colour)
        registration, stack = Registration(first), Stack(first.shape)
        frames, picture, shift = 0, first, (0.0, 0.0)
        try:
            while True:
                stack.add(picture, (0.0, 0.0) if options.no_align else shift)
                frames += 1
                print(
                    f"frame {frames}: moved by {shift[1]:.2f}, {shift[0]:.2f} px; noise "
                    f"{noise(picture):.1f}, of the mean {noise(stack.mean()):.1f}",
                    flush=True,
                )
                if frames == options.frames:
                    break
                picture = luminance(camera.expose(), camera.colour)
                shift = registration.shift(picture)
        except KeyboardInterrupt:
            print("stopped", file=sys.stderr)
        save(options.output, stack.mean(), frames, camera)
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except vsccam.VsccamError as error:
        sys.exit(f"live_stack: {error}")

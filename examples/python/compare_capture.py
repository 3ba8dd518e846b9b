#!/usr/bin/python3
"""Compares a captured frame, saved as a PNG, with the PM5544 card it should show.

    compare_capture.py [--encoding NAME] [--bits N] [--sampling 444|422|420] [--aspect NUMxDEN]
                       [--size WIDTHxHEIGHT] [--library PATH] CAPTURE.png

The card is rendered by the pm5544 package (libpm5544 through ctypes) at the capture's size, unless
--size names one, and laid out as pm5544's PNG files are: R', G', B' for the R'G'B' encodings and
Cr, Y', Cb for the Y'CbCr ones, each code in the high bits of 16. The capture must be an 8- or 16-bit
RGB or RGBA PNG of that size; its alpha, which video does not carry, is not compared. An 8-bit capture
is compared with a card of 8 bits only. The report gives the pixels that differ, the largest
difference per channel, the box holding the differences and the PSNR, all in the capture's sample
values. (pm5544.analyse says what a chain did to a capture; this compares sample for sample.)

The library is libpm5544.so.1 as the dynamic loader finds it, or the file named by --library or the
environment variable PM5544_LIBRARY. Needs the pm5544 package and the Debian packages python3-numpy
and python3-png.

Exit status: 0 identical, 1 different, 2 an error (a message says which).
"""
import argparse
import math
import os
import sys
import zlib

import numpy
import png

PROGRAM = "compare_capture"
COLOUR_CHANNELS = 3  # of the samples a pixel, before alpha
CHANNELS_RGB = ("R'", "G'", "B'")
CHANNELS_YCBCR = ("Cr", "Y'", "Cb")


class Failure(Exception):
    """An error to report with exit status 2."""


def render_card(settings, width, height):
    """Frame 0 of the card as a (height, width, 3) array of 16-bit samples, as pm5544's PNGs hold them."""
    import pm5544  # after --library has named the library in the environment
    try:
        planes = pm5544.render(width, height, encoding=settings.encoding, bits=settings.bits,
                               sampling=settings.sampling, aspect=settings.aspect)
        ycbcr = pm5544.is_ycbcr(settings.encoding)
    except (pm5544.Error, OSError) as error:
        raise Failure(str(error))
    order = (2, 0, 1) if ycbcr else (0, 1, 2)  # Cr, Y', Cb in the PNG's R, G, B
    card = numpy.dstack([planes[i] for i in order]).astype(numpy.uint16) << (16 - settings.bits)
    return card, CHANNELS_YCBCR if ycbcr else CHANNELS_RGB


def read_capture(path):
    """The capture as a (height, width, channels) array and its bit depth."""
    try:
        width, height, rows, info = png.Reader(filename=path).read()
        if info["greyscale"] or info.get("palette") or info["bitdepth"] not in (8, 16):
            kind = "greyscale" if info["greyscale"] else "palette" if info.get("palette") else f"{info['bitdepth']}-bit"
            raise Failure(f"{path} is a {kind} PNG; only 8- and 16-bit RGB or RGBA captures are compared")
        samples = numpy.array([numpy.asarray(row, numpy.uint16) for row in rows])
    except (OSError, png.Error, zlib.error) as error:
        raise Failure(f"cannot read {path}: {error}")
    return samples.reshape(height, width, info["planes"]), info["bitdepth"]


def report_differences(capture, card, channels, peak):
    """Prints how the capture differs from the card; True when it does."""
    difference = capture.astype(numpy.int32) - card.astype(numpy.int32)
    differing = numpy.any(difference != 0, axis=2)
    count = int(numpy.count_nonzero(differing))
    height, width = differing.shape
    if count == 0:
        print("identical")
        return False
    largest = numpy.abs(difference).max(axis=(0, 1))
    rows = numpy.flatnonzero(differing.any(axis=1))
    columns = numpy.flatnonzero(differing.any(axis=0))
    mean_square = numpy.mean(numpy.square(difference, dtype=numpy.float64))
    print(f"differing pixels: {count} of {width * height} ({100.0 * count / (width * height):.4f}%)")
    print("largest difference: " + ", ".join(f"{name} {int(value)}" for name, value in zip(channels, largest)))
    print(f"bounding box: x {columns[0]}..{columns[-1]}, y {rows[0]}..{rows[-1]} "
          f"({columns[-1] - columns[0] + 1}x{rows[-1] - rows[0] + 1})")
    print(f"PSNR: {10.0 * math.log10(peak * peak / mean_square):.2f} dB (peak {peak})")
    return True


def number_pair(text):
    """"1920x1080" or "16x9" as two numbers."""
    first, _, second = text.partition("x")
    return int(first), int(second)


def parse_arguments():
    parser = argparse.ArgumentParser(prog=PROGRAM, description="Compares a captured PNG with the PM5544 card.")
    parser.add_argument("capture", help="the captured frame, an 8- or 16-bit RGB or RGBA PNG")
    parser.add_argument("--encoding", default="RGB", help="the card's colour encoding, as pm5544 -c names it")
    parser.add_argument("--bits", type=int, default=12, help="the card's bit depth, 8 to 16 (default 12)")
    parser.add_argument("--sampling", type=int, default=444, choices=(444, 422, 420))
    parser.add_argument("--aspect", type=number_pair, default=(16, 9), help="display aspect NUMxDEN (default 16x9)")
    parser.add_argument("--size", type=number_pair, help="the card's raster WIDTHxHEIGHT (default the capture's)")
    parser.add_argument("--library", help="the library to load (default $PM5544_LIBRARY, else libpm5544.so.1)")
    return parser.parse_args()


def compare(settings):
    capture, depth = read_capture(settings.capture)
    height, width = capture.shape[:2]
    if settings.size and settings.size != (width, height):
        raise Failure(f"the capture is {width}x{height}, the card {settings.size[0]}x{settings.size[1]}")
    if depth == 8 and settings.bits != 8:
        raise Failure(f"the capture is 8-bit; a card of {settings.bits} bits needs a 16-bit capture")
    if settings.library:
        os.environ["PM5544_LIBRARY"] = settings.library
    card, channels = render_card(settings, width, height)
    compared = card >> (16 - depth)
    print(f"capture: {settings.capture}, {width}x{height}, {depth}-bit {'RGBA' if capture.shape[2] == 4 else 'RGB'}")
    sampling = ":".join(str(settings.sampling))
    print(f"card: {settings.encoding}, {settings.bits} bits, {sampling}, {settings.aspect[0]}:{settings.aspect[1]}")
    return report_differences(capture[:, :, :COLOUR_CHANNELS], compared, channels, (1 << depth) - 1)


def main():
    settings = parse_arguments()
    try:
        return 1 if compare(settings) else 0
    except Failure as failure:
        print(f"{PROGRAM}: {failure}", file=sys.stderr)
        return 2


if __name__ == "__main__":
    sys.exit(main())

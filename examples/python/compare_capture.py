#!/usr/bin/python3
"""Compares a captured frame, saved as a PNG, with the PM5544 card it should show.

    compare_capture.py [--encoding NAME] [--bits N] [--sampling 444|422|420] [--aspect NUMxDEN]
                       [--size WIDTHxHEIGHT] [--library PATH] CAPTURE.png

The card is rendered through libpm5544 (ctypes) at the capture's size, unless --size names one, into
a numpy array laid out as pm5544's PNG files are: R', G', B' for the R'G'B' encodings and Cr, Y', Cb
for the Y'CbCr ones, each code in the high bits of 16 (the RGBA16 layout at 16 bits where the
encoding allows it, else FRAME16). The capture must be an 8- or 16-bit RGB or RGBA PNG of that size;
its alpha, which video does not carry, is not compared. An 8-bit capture is compared with a card of
8 bits only. The report gives the pixels that differ, the largest difference per channel, the box
holding the differences and the PSNR, all in the capture's sample values.

The library is libpm5544.so.1 as the dynamic loader finds it, or the file named by --library or the
environment variable PM5544_LIBRARY. Needs the Debian packages python3-numpy and python3-png.

Exit status: 0 identical, 1 different, 2 an error (a message says which).
"""
import argparse
import ctypes
import math
import os
import sys
import zlib

import numpy
import png

PROGRAM = "compare_capture"
DEFAULT_LIBRARY = "libpm5544.so.1"
PM5544_OK = 0
LAYOUT_FRAME16 = 0
LAYOUT_RGBA16 = 15
MAX_PLANES = 3
COLOUR_CHANNELS = 3  # of the four samples a pixel, before alpha
CHANNELS_RGB = ("R'", "G'", "B'")
CHANNELS_YCBCR = ("Cr", "Y'", "Cb")


class Failure(Exception):
    """An error to report with exit status 2."""


class Plane(ctypes.Structure):
    _fields_ = [("row_bytes", ctypes.c_size_t), ("rows", ctypes.c_int), ("bytes", ctypes.c_size_t)]


def load_library(path):
    try:
        lib = ctypes.CDLL(path)
    except OSError as error:
        raise Failure(f"cannot load {path}: {error}")
    card_p = ctypes.c_void_p
    signatures = {
        "pm5544_card_new": (card_p, []),
        "pm5544_card_free": (None, [card_p]),
        "pm5544_last_error": (ctypes.c_char_p, [card_p]),
        "pm5544_encoding_name": (ctypes.c_char_p, [ctypes.c_int]),
        "pm5544_encoding_is_ycbcr": (ctypes.c_int, [ctypes.c_int]),
        "pm5544_layout_allows": (ctypes.c_int, [ctypes.c_int, ctypes.c_int]),
        "pm5544_layout_planes": (ctypes.c_int, [ctypes.c_int, ctypes.c_int, ctypes.c_int, ctypes.POINTER(Plane)]),
        "pm5544_set_raster": (ctypes.c_int, [card_p, ctypes.c_int, ctypes.c_int]),
        "pm5544_set_aspect": (ctypes.c_int, [card_p, ctypes.c_int, ctypes.c_int]),
        "pm5544_set_encoding": (ctypes.c_int, [card_p, ctypes.c_int]),
        "pm5544_set_bits": (ctypes.c_int, [card_p, ctypes.c_int]),
        "pm5544_set_sampling": (ctypes.c_int, [card_p, ctypes.c_int]),
        "pm5544_use_layout": (ctypes.c_int, [card_p, ctypes.c_int]),
        "pm5544_render_frame": (ctypes.c_int, [card_p, ctypes.c_int64, ctypes.c_int,
                                               ctypes.POINTER(ctypes.c_void_p), ctypes.POINTER(ctypes.c_size_t)]),
    }
    for name, (result, arguments) in signatures.items():
        function = getattr(lib, name)
        function.restype = result
        function.argtypes = arguments
    return lib


def encoding_value(lib, name):
    """The pm5544_encoding that the -c word `name` names."""
    value = 0
    while (known := lib.pm5544_encoding_name(value)) is not None:
        if known.decode() == name:
            return value
        value += 1
    raise Failure(f"unknown encoding {name!r}")


def render_card(lib, settings, width, height):
    """Frame 0 of the card as a (height, width, 4) array of 16-bit samples and its channel names."""
    encoding = encoding_value(lib, settings.encoding)
    use_rgba16 = settings.bits == 16 and lib.pm5544_layout_allows(LAYOUT_RGBA16, encoding) == 1
    layout = LAYOUT_RGBA16 if use_rgba16 else LAYOUT_FRAME16
    sample_type = numpy.dtype("<u2") if use_rgba16 else numpy.dtype("=u2")  # FRAME16 is in machine order
    card = lib.pm5544_card_new()
    if not card:
        raise Failure("not enough memory for a card")
    try:
        steps = [lambda: lib.pm5544_set_raster(card, width, height),
                 lambda: lib.pm5544_set_aspect(card, *settings.aspect),
                 lambda: lib.pm5544_set_encoding(card, encoding),
                 lambda: lib.pm5544_set_bits(card, settings.bits),
                 lambda: lib.pm5544_set_sampling(card, settings.sampling),
                 lambda: lib.pm5544_use_layout(card, layout)]
        planes = (Plane * MAX_PLANES)()
        if any(step() != PM5544_OK for step in steps) or lib.pm5544_layout_planes(layout, width, height, planes) != 1:
            raise Failure(lib.pm5544_last_error(card).decode())
        frame = numpy.empty((height, planes[0].row_bytes // sample_type.itemsize), sample_type)
        pointers = (ctypes.c_void_p * MAX_PLANES)(frame.ctypes.data)
        strides = (ctypes.c_size_t * MAX_PLANES)(frame.strides[0])
        if lib.pm5544_render_frame(card, 0, layout, pointers, strides) != PM5544_OK:
            raise Failure(lib.pm5544_last_error(card).decode())
    finally:
        lib.pm5544_card_free(card)
    channels = CHANNELS_YCBCR if lib.pm5544_encoding_is_ycbcr(encoding) == 1 else CHANNELS_RGB
    return frame[:, :width * 4].reshape(height, width, 4).astype(numpy.uint16), channels


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
    parser.add_argument("--library", default=os.environ.get("PM5544_LIBRARY", DEFAULT_LIBRARY),
                        help="the library to load (default $PM5544_LIBRARY, else " + DEFAULT_LIBRARY + ")")
    return parser.parse_args()


def compare(settings):
    capture, depth = read_capture(settings.capture)
    height, width = capture.shape[:2]
    if settings.size and settings.size != (width, height):
        raise Failure(f"the capture is {width}x{height}, the card {settings.size[0]}x{settings.size[1]}")
    if depth == 8 and settings.bits != 8:
        raise Failure(f"the capture is 8-bit; a card of {settings.bits} bits needs a 16-bit capture")
    card, channels = render_card(load_library(settings.library), settings, width, height)
    compared = card[:, :, :COLOUR_CHANNELS] >> (16 - depth)
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

"""The PM5544 test card from libpm5544, as numpy arrays, and the analysis of captures of it.

    import pm5544
    y, cb, cr = pm5544.render(1920, 1080, encoding="709", bits=10, sampling=422)
    report = pm5544.analyse("capture.y4m", encoding="709", bits=10, sampling=422)
    report["verdict"], report["geometry"], report["findings"]

The library is libpm5544.so.1 as the dynamic loader finds it, or the file the environment variable
PM5544_LIBRARY names.
"""
import ctypes
import json
import os

import numpy

__all__ = ["render", "analyse", "is_ycbcr", "Error", "NoCardFound"]

_MAX_PLANES = 3
_NO_CARD = -6
_NO_CARD_MESSAGE = "no PM5544 card found"
_LAYOUT_FRAME16 = 0


class Error(Exception):
    """A call the library refused, with its message."""


class NoCardFound(Error):
    """The capture shows no PM5544 card of the settings given."""


class _Plane(ctypes.Structure):
    _fields_ = [("row_bytes", ctypes.c_size_t), ("rows", ctypes.c_int), ("bytes", ctypes.c_size_t)]


_P = ctypes.c_void_p
_SIGNATURES = {
    "pm5544_card_new": (_P, []),
    "pm5544_card_free": (None, [_P]),
    "pm5544_last_error": (ctypes.c_char_p, [_P]),
    "pm5544_encoding_name": (ctypes.c_char_p, [ctypes.c_int]),
    "pm5544_encoding_is_ycbcr": (ctypes.c_int, [ctypes.c_int]),
    "pm5544_layout_name": (ctypes.c_char_p, [ctypes.c_int]),
    "pm5544_layout_format": (ctypes.c_int, [ctypes.c_int, ctypes.POINTER(ctypes.c_int), ctypes.POINTER(ctypes.c_int)]),
    "pm5544_layout_planes": (ctypes.c_int, [ctypes.c_int, ctypes.c_int, ctypes.c_int, ctypes.POINTER(_Plane)]),
    "pm5544_set_raster": (ctypes.c_int, [_P, ctypes.c_int, ctypes.c_int]),
    "pm5544_set_aspect": (ctypes.c_int, [_P, ctypes.c_int, ctypes.c_int]),
    "pm5544_set_encoding_name": (ctypes.c_int, [_P, ctypes.c_char_p]),
    "pm5544_set_bits": (ctypes.c_int, [_P, ctypes.c_int]),
    "pm5544_set_sampling": (ctypes.c_int, [_P, ctypes.c_int]),
    "pm5544_use_layout": (ctypes.c_int, [_P, ctypes.c_int]),
    "pm5544_set_ident": (ctypes.c_int, [_P, ctypes.c_char_p]),
    "pm5544_set_caption": (ctypes.c_int, [_P, ctypes.c_char_p]),
    "pm5544_set_clock": (ctypes.c_int, [_P, ctypes.c_int]),
    "pm5544_set_timecode": (ctypes.c_int, [_P, ctypes.c_char_p]),
    "pm5544_set_font": (ctypes.c_int, [_P, ctypes.c_char_p]),
    "pm5544_set_frame_rate": (ctypes.c_int, [_P, ctypes.c_int, ctypes.c_int]),
    "pm5544_render_frame": (ctypes.c_int, [_P, ctypes.c_int64, ctypes.c_int, ctypes.POINTER(ctypes.c_void_p),
                                           ctypes.POINTER(ctypes.c_size_t)]),
    "pm5544_capture_read": (_P, [ctypes.c_char_p, ctypes.c_int64, ctypes.c_char_p, ctypes.c_size_t]),
    "pm5544_capture_from_planes": (_P, [ctypes.c_int, ctypes.c_int, ctypes.c_int, ctypes.c_int, ctypes.c_int,
                                        ctypes.POINTER(ctypes.c_void_p), ctypes.POINTER(ctypes.c_size_t)]),
    "pm5544_capture_free": (None, [_P]),
    "pm5544_capture_format": (ctypes.c_int, [_P] + [ctypes.POINTER(ctypes.c_int)] * 4),
    "pm5544_analyse": (_P, [_P, _P, ctypes.c_int64]),
    "pm5544_analysis_free": (None, [_P]),
    "pm5544_analysis_json": (ctypes.c_char_p, [_P]),
}
_library = None


def _lib():
    global _library
    if _library is None:
        library = ctypes.CDLL(os.environ.get("PM5544_LIBRARY", "libpm5544.so.1"))
        for name, (result, arguments) in _SIGNATURES.items():
            function = getattr(library, name)
            function.restype, function.argtypes = result, arguments
        _library = library
    return _library


def _text(value):
    return None if value is None else str(value).encode()


class _Card:
    """A library handle with the settings of pm5544's command line, freed on leaving."""

    def __init__(self, width, height, encoding="RGB", bits=12, sampling=444, aspect=(16, 9), ident=None,
                 caption=None, clock=False, timecode=None, rate=(25, 1), font=None):
        lib = _lib()
        self.handle = lib.pm5544_card_new()
        if not self.handle:
            raise MemoryError("pm5544_card_new")
        rate = rate if isinstance(rate, (tuple, list)) else (rate, 1)
        calls = [(lib.pm5544_set_encoding_name, _text(encoding)), (lib.pm5544_set_raster, width, height),
                 (lib.pm5544_set_aspect, *aspect), (lib.pm5544_set_bits, bits), (lib.pm5544_set_sampling, sampling),
                 (lib.pm5544_set_ident, _text(ident)), (lib.pm5544_set_caption, _text(caption)),
                 (lib.pm5544_set_clock, int(bool(clock))), (lib.pm5544_set_timecode, _text(timecode)),
                 (lib.pm5544_set_font, _text(font)), (lib.pm5544_set_frame_rate, *rate)]
        for setter, *arguments in calls:
            self.check(setter(self.handle, *arguments))

    def check(self, status):
        if status != 0:
            message = _lib().pm5544_last_error(self.handle).decode()
            raise (NoCardFound if status == _NO_CARD else Error)(message)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        _lib().pm5544_card_free(self.handle)


def _layout_value(name):
    lib = _lib()
    index = 0
    while (found := lib.pm5544_layout_name(index)) is not None:
        if found.decode() == name:
            return index
        index += 1
    raise Error(f"no layout {name!r}")


def _planes(layout, width, height):
    sizes = (_Plane * _MAX_PLANES)()
    count = _lib().pm5544_layout_planes(layout, width, height, sizes)
    if count < 0:
        raise Error(f"{width}x{height} cannot be laid out")
    return sizes[:count]


def render(width, height, encoding="RGB", bits=12, sampling=444, frame=0, layout=None, **settings):
    """Frame `frame` of the card, as pm5544 -d WIDTHxHEIGHT -c ENCODING -b BITS -s SAMPLING makes it.

    Without a layout: three uint16 arrays of codes, height x width, Y', Cb, Cr or R', G', B', the
    subsampled chroma repeated over the pixels that share it. With a layout's name ("I422_10", "V210",
    "NV12", ...): its planes as they are in memory, one array each of rows x row bytes (uint8) or of rows x
    row samples (uint16 for the layouts of 16-bit words). Further settings: aspect=(16, 9), ident,
    caption, clock, timecode, rate=(25, 1), font.
    """
    with _Card(width, height, encoding, bits, sampling, **settings) as card:
        code = _LAYOUT_FRAME16 if layout is None else _layout_value(layout)
        card.check(_lib().pm5544_use_layout(card.handle, code))
        planes = _planes(code, width, height)
        words = layout is None or _layout_words(code)
        arrays = [numpy.zeros((p.rows, p.row_bytes // (2 if words else 1)), numpy.uint16 if words else numpy.uint8)
                  for p in planes]
        pointers = (ctypes.c_void_p * len(arrays))(*[a.ctypes.data for a in arrays])
        strides = (ctypes.c_size_t * len(arrays))(*[p.row_bytes for p in planes])
        card.check(_lib().pm5544_render_frame(card.handle, frame, code, pointers, strides))
    if layout is not None:
        return arrays
    pixels = arrays[0].reshape(height, width, 4) >> (16 - bits)
    order = (1, 2, 0) if is_ycbcr(encoding) else (0, 1, 2)  # FRAME16 holds Cr, Y', Cb
    return tuple(numpy.ascontiguousarray(pixels[:, :, i]) for i in order)


def _layout_words(layout):
    """Whether a layout's samples are 16-bit words (bits above 8, or the 16-bit frame)."""
    bits, sampling = ctypes.c_int(), ctypes.c_int()
    _lib().pm5544_layout_format(layout, ctypes.byref(bits), ctypes.byref(sampling))
    return bits.value == 0 or bits.value > 8


def is_ycbcr(encoding):
    """Whether the encoding pm5544 -c names `encoding` is Y'CbCr (else R'G'B')."""
    return _lib().pm5544_encoding_is_ycbcr(_encoding_value(encoding)) == 1


def _encoding_value(word):
    index = 0
    while (name := _lib().pm5544_encoding_name(index)) is not None:
        if name.decode() == word:
            return index
        index += 1
    raise Error(f"no encoding {word!r}")


def _capture_of_arrays(planes, bits, ycbcr):
    """A capture from three 2-D code arrays of one size (or one height x width x 3 array)."""
    planes = list(numpy.moveaxis(planes, -1, 0)) if getattr(planes, "ndim", 0) == 3 else list(planes)
    if len(planes) != 3 or len({p.shape for p in planes}) != 1:
        raise Error("a capture is three planes of one size, or one array of height x width x 3")
    height, width = planes[0].shape
    frame = numpy.zeros((height, width, 4), numpy.uint16)
    for component, plane in zip((1, 2, 0) if ycbcr else (0, 1, 2), planes):
        frame[:, :, component] = numpy.asarray(plane, numpy.uint16) << (16 - bits)
    pointers = (ctypes.c_void_p * 1)(frame.ctypes.data)
    strides = (ctypes.c_size_t * 1)(width * 8)
    return _lib().pm5544_capture_from_planes(_LAYOUT_FRAME16, width, height, bits, int(ycbcr), pointers, strides)


def analyse(capture, width=None, height=None, frame=0, capture_bits=None, capture_ycbcr=None, **sent):
    """What the chain did to the card: the analyser's report as a dict with its JSON keys.

    `capture` is a file name (PNG, TIFF, DPX, Y4M) or three code arrays (Y', Cb, Cr or R', G', B'), or
    one height x width x 3 array, at `capture_bits` (default the sent bits), holding Y'CbCr when
    `capture_ycbcr` (default: as sent). What was sent, as render() takes it: encoding, bits, sampling,
    aspect, ident, caption, clock, timecode, rate, font; the raster is the capture's unless given.
    Raises NoCardFound when the capture shows no such card, Error for anything else refused.
    """
    lib = _lib()
    if isinstance(capture, (str, bytes, os.PathLike)):
        reason = ctypes.create_string_buffer(512)
        handle = lib.pm5544_capture_read(os.fsencode(capture), frame, reason, len(reason))
        if not handle:
            raise Error(reason.value.decode())
    else:
        bits = capture_bits or sent.get("bits", 12)
        ycbcr = capture_ycbcr if capture_ycbcr is not None else is_ycbcr(sent.get("encoding", "RGB"))
        handle = _capture_of_arrays(capture, bits, ycbcr)
        if not handle:
            raise Error("the library refused the capture's planes")
    try:
        shape = [ctypes.c_int() for _ in range(4)]
        lib.pm5544_capture_format(handle, *[ctypes.byref(v) for v in shape])
        with _Card(width or shape[0].value, height or shape[1].value, **sent) as card:
            analysis = lib.pm5544_analyse(card.handle, handle, frame)
            if not analysis:
                message = lib.pm5544_last_error(card.handle).decode()
                raise (NoCardFound if message == _NO_CARD_MESSAGE else Error)(message)
            try:
                return json.loads(lib.pm5544_analysis_json(analysis).decode())
            finally:
                lib.pm5544_analysis_free(analysis)
    finally:
        lib.pm5544_capture_free(handle)

#!/usr/bin/env python3
"""Ground truth for pm5544-analyse: cards rendered by pm5544, degraded by ffmpeg with known parameters,
read back by the analyser; its JSON is compared with figures derived from the parameters.

    degradation_suite.py --analyser A --renderer R [--keep DIR] [--only NAME[,NAME]] [-j N] [--list]
    degradation_suite.py --check-truths --renderer R     # the expected figures against numpy's measurements

Conventions the expected figures follow (levels are what is left after the named operations):
- "expanded" maps studio range to the full range at the sent depth: Y' 64..940 -> 0..1023 and
  C' 512 +- 448 -> 512 +- 511.5 at 10 bits. Scalers round, and swscale expands above 8 bits as 8-bit
  codes times 4 (white 1020): a rounding table (or lutyuv's truncating one) applied to the sent card's
  own codes and fitted by least squares, weighted by area, gives the gain and offset that are left.
- Offsets are judged where the line is pinned: at code 0 for Y' and R'G'B', at the centre for Cb and Cr.
- A 16-bit picture holds a code << (16 - bits), as the program writes it; ffmpeg's R'G'B' captures are
  made from 10 bits by repeating the top bits below, which reads the same.
- The noise filter works on 8-bit samples; its sigma and mean shift are measured on a flat grey frame
  sent through the same chain.
- The lossy codecs run at 1920x1080: at smaller rasters their ringing reaches most flat areas, and at CRF 35
  the few horizontal grid lines of 1280x720 place the vertical scale only to about 0.025 %.
--check-truths (numpy, tests/analysis/truth_check.py) measures geometry on ramps through the same filters
and levels, noise and bit depth on the card's flat areas, so each derivation is checked against ffmpeg.
Exit status: 0 when every case passes, 1 when any fails, 77 when ffmpeg (or numpy for --check-truths) is missing.
"""
import argparse, array, concurrent.futures, fnmatch, json, math, os, shutil, signal, subprocess, sys, tempfile
from collections import Counter

FFMPEG = ['ffmpeg', '-loglevel', 'error', '-nostdin', '-y']
RASTER = ['-d', '640x360', '-a', '16x9']
Y4M10 = dict(out='y4m', pix='yuv422p10le')
SWS_FULL = 1020 / 1023                    # swscale's 10-bit full range against 0..1023
CHROMA_MID = 512
NO_CARD = 'no PM5544 card found'
SANITIZER_MARKS = ('AddressSanitizer', 'LeakSanitizer', 'UndefinedBehaviorSanitizer', 'runtime error:')

# Cards: what the renderer is given; the analyser is told the same -d -a -c -b -s ("sent").
CARDS = {
    'y709':  RASTER + ['-c', '709', '-b', '10', '-s', '422'], 'y601': RASTER + ['-c', '601', '-b', '10', '-s', '422'],
    'y2020': RASTER + ['-c', '2020', '-b', '10', '-s', '422'], 'y420': ['-d', '1920x1080', '-a', '16x9', '-c', '709', '-b', '10', '-s', '420'],
    'rgb':   RASTER + ['-c', 'RGB', '-b', '10'],
    'y709_4x3': ['-d', '640x360', '-a', '4x3', '-c', '709', '-b', '10', '-s', '422'],
    'y8_420':  RASTER + ['-c', '709', '-b', '8', '-s', '420'], 'y12_444': RASTER + ['-c', '709', '-b', '12', '-s', '444'],
    'y16_422': RASTER + ['-c', '2020', '-b', '16', '-s', '422'], 'sd601': ['-d', '720x576', '-a', '4x3', '-c', '601', '-b', '10', '-s', '422'],
    'y709_444': RASTER + ['-c', '709', '-b', '10', '-s', '444'], 'rgb8': RASTER + ['-c', 'RGB', '-b', '8'],
    'rgb12': RASTER + ['-c', 'RGB', '-b', '12'], 'rgbh': RASTER + ['-c', 'RGB-headroom', '-b', '10'],
}
RENDER_ONLY = {'y709_3frames': (CARDS['y709'] + ['--frames', '3'], 'y709')}   # name: (args, card whose "sent" it shares)

def lut_y_102(v): return min(max(int(v * 1.02 + 8), 0), 1023)               # lutyuv=y='clip(val*1.02+8,0,1023)'
def lut_y_095(v): return min(max(int(64 + (v - 64) * 0.95 + 0.5), 0), 1023) # rounds: +0.5 then truncation
def rounded(x): return min(max(math.floor(x + 0.5), 0), 1023)
def rounded_down(x): return min(max(math.ceil(x - 0.5), 0), 1023)   # zimg works in single precision: 511.5 gives 511
# Range changes at 10 bits, as the standard full range has them (white 1023, chroma 512 +- 511.5), and as
# integer tables that round: their fit over the card's codes is what a scaler leaves beside the named change.
EXPAND = {0: lambda v: (v - 64) * 1023 / 876, 1: lambda v: (v - 512) * 1023 / 896 + 512}
COMPRESS = {0: lambda v: v * 876 / 1023 + 64, 1: lambda v: (v - 512) * 896 / 1023 + 512}
EXPAND_SWS = {0: lambda v: rounded((v - 64) * 1020 / 876), 1: lambda v: rounded((v - 512) * 1020 / 896 + 512)}
COMPRESS_SWS = {0: lambda v: rounded(v * 876 / 1020 + 64), 1: lambda v: rounded((v - 512) * 896 / 1020 + 512)}
def per_plane(table, planes=(0, 1, 2)): return {p: table[min(p, 1)] if len(table) > 1 else table[0] for p in planes}
def rounded_table(table, rounding=rounded): return {p: (lambda f: lambda v: rounding(f(v)))(f) for p, f in table.items()}
RGB_EXPAND = {0: EXPAND[0]}
ZIMG_EXPAND = rounded_table(per_plane(EXPAND), rounded_down)
# geq, not lutrgb: lutrgb clips R'G'B' above 8 bits at 255 x 4 = 1020.
GEQ_RGB_EXPAND = 'format=gbrp10le,geq=' + ':'.join(f"{c}='clip(round(({c}(X,Y)-64)*1023/876),0,1023)'" for c in 'rgb')
RGB_SWAP = 'format=gbrap10le,shuffleplanes=0:2:1:3'   # planes G, B, R, A
LUT_102 = "lutyuv=y='clip(val*1.02+8,0,1023)'"
LUT_095 = "lutyuv=y='clip(64+(val-64)*0.95+0.5,0,1023)'"
NOISE = 'format=yuv422p,noise=alls=10,format=yuv422p10le'
LINK8 = 'format=yuv422p,format=yuv422p10le'
SWS_EXPANDED = dict(   # the pairs' swscale expansion, as the rounding-table fits give it within tolerance
    range='expanded', gain=[SWS_FULL] * 3, offset=[0] + [CHROMA_MID * (1 - SWS_FULL)] * 2)
ZS_DOWN = dict(geometry=[0.75, 0.75, -0.125, -0.125])
CROP_BACK = 'crop=576:324:32:18,zscale=w=640:h=360:f=spline36'
PILLARBOX = 'scale=480:360,pad=640:360:80:0'
M709_601 = 'scale=in_color_matrix=bt709:out_color_matrix=bt601'
def CRF(encoder, crf):
    return ['-c:v', encoder, '-crf', str(crf), '-pix_fmt', 'yuv420p10le'] + (['-x265-params', 'log-level=error'] if encoder == 'libx265' else [])
Y420 = dict(out='y4m', pix='yuv420p10le')

def case(name, card, want, note, vf=None, **how):
    return dict(name=name, card=card, want=want, note=note, vf=vf, **{**Y4M10, **how})

CHANGED = dict(verdict='changed')
# Each case: name, card, expected figures, how they follow from the parameters, the ffmpeg filter, and how
# the capture is made (out, pix, enc, src, write, stdin, sent, frame).
CASES = [
    # Range and matrix, geometry untouched.
    case('range-tv-pc-swscale', 'y709', {**CHANGED, 'range': 'expanded', 'lut': per_plane(EXPAND_SWS), 'named': per_plane(EXPAND)},
         'swscale: Y (Y-64) 1020/876, C (C-512) 1020/896 + 512, rounded: about 1020/1023 and C offset 1.5',
         'scale=in_range=tv:out_range=pc'),
    case('range-pc-tv-swscale', 'y709', {**CHANGED, 'range': 'compressed', 'lut': per_plane(COMPRESS_SWS), 'named': per_plane(COMPRESS)},
         'swscale: Y 876/1020 + 64, C (C-512) 896/1020 + 512, rounded: about 1023/1020 and C offset -1.5',
         'scale=in_range=pc:out_range=tv'),
    case('range-tv-pc-zscale', 'y709', {**CHANGED, 'range': 'expanded', 'lut': ZIMG_EXPAND, 'named': per_plane(EXPAND)},
         'zimg: the standard full range, rounded (ties down: grey 502 -> 511); only the rounding is left', 'zscale=rangein=limited:range=full'),
    case('range-pc-tv-zscale', 'y709', {**CHANGED, 'range': 'compressed', 'lut': rounded_table(per_plane(COMPRESS), rounded_down), 'named': per_plane(COMPRESS)},
         'zimg: full 0..1023 read, studio written, rounded', 'zscale=rangein=full:range=limited'),
    case('matrix-709-601', 'y709', {**CHANGED, 'matrix': ['709', '601']}, 'decoded 709, encoded 601', M709_601),
    case('matrix-601-709', 'y601', {**CHANGED, 'matrix': ['601', '709']}, 'decoded 601, encoded 709', 'scale=in_color_matrix=bt601:out_color_matrix=bt709'),
    case('matrix-709-2020', 'y709', {**CHANGED, 'matrix': ['709', '2020']}, 'decoded 709, encoded 2020', 'scale=in_color_matrix=bt709:out_color_matrix=bt2020'),
    case('matrix-2020-709', 'y2020', {**CHANGED, 'matrix': ['2020', '709']}, 'decoded 2020, encoded 709', 'scale=in_color_matrix=bt2020:out_color_matrix=bt709'),
    case('swap-cb-cr', 'y709', {**CHANGED, 'swap': 'Cb-Cr'}, 'U and V planes exchanged', 'swapuv'),
    case('levels-y-gain-offset', 'y709', {**CHANGED, 'lut': {0: lut_y_102}}, 'Y = trunc(1.02 Y + 8): about 1.02, 7.5; fitted on the card', LUT_102),
    case('levels-y-gain', 'y709', {**CHANGED, 'lut': {0: lut_y_095}}, 'Y = round(64 + 0.95 (Y-64)): 0.95, 3.2', LUT_095),
    case('levels-cb-offset', 'y709', {**CHANGED, 'offset': [0, 6, 0]}, 'Cb + 6 exactly (no clipping on the card)', "lutyuv=u='val+6'"),
    case('range-rgb-to-ycc', 'rgb', {**CHANGED, 'matrix': ['rgb', '709'], 'components': ['R', 'G', 'B']},
         "10-bit R'G'B' (exact from the PNG) -> zimg 709 studio Y'CbCr", 'format=gbrp10le,zscale=matrix=709:range=limited', pix='yuv444p10le'),
    case('ycc-as-rgb-png', 'y709', {**CHANGED, 'matrix': ['709', 'rgb']}, "zimg: 709 studio -> R'G'B' full 16-bit PNG, exact levels",
         'zscale=matrixin=709:rangein=limited:range=full,format=gbrp10le', out='png'),
    case('rgb-swap-r-b', 'rgb', {**CHANGED, 'swap': 'R-B', 'components': ['R', 'G', 'B']}, 'gbrap10 planes G,B,R,A -> G,R,B,A (checked exact)',
         RGB_SWAP, out='png'),
    # Geometry: x' = s x + offset, pixel centres at integers; zscale is centre-aligned: offset (s-1)/2.
    case('scale-zscale-down', 'y709', {**CHANGED, **ZS_DOWN}, 's = 480/640 = 0.75, offset (s-1)/2 = -0.125', 'zscale=w=480:h=270:f=spline36'),
    case('scale-zscale-up', 'y709', {**CHANGED, 'geometry': [1.5, 1.5, 0.25, 0.25]}, 's = 1.5, offset 0.25', 'zscale=w=960:h=540:f=spline36'),
    case('scale-anamorphic', 'y709', {**CHANGED, 'geometry': [1, 0.75, 0, -0.125]}, 'height only: s_y 0.75, offset -0.125', 'zscale=w=640:h=270:f=spline36'),
    case('crop-zscale-back', 'y709', {**CHANGED, 'geometry': [10 / 9, 10 / 9, -35.5, -20 + 1 / 18]},
         's = 640/576 = 10/9; x: 10/9 (x-32) + 1/18 = -35.5; y: 10/9 (y-18) + 1/18', CROP_BACK),
    case('pillarbox-4x3', 'y709', {**CHANGED, 'geometry': [0.75, 1, 79.875, 0]}, '480/640 = 0.75, -0.125 + 80 bars (swscale within 0.005 px)', PILLARBOX),
    case('shift-8px', 'y709', {**CHANGED, 'geometry': [1, 1, 8, 0]}, '8 black columns in on the left, 8 out on the right', 'pad=648:360:8:0,crop=640:360:0:0'),
    case('hflip', 'y709', {**CHANGED, 'geometry': [-1, 1, 639, 0]}, "x' = 639 - x", 'hflip'),
    case('vflip', 'y709', {**CHANGED, 'geometry': [1, -1, 0, 359]}, "y' = 359 - y", 'vflip'),
    # Quality: noise, quantisation, compression.
    case('noise-10', 'y709', {**CHANGED, 'bit_depth': 8, 'tol': 'noisy', 'calibrate': (LINK8, NOISE)},
         'sigma and mean shift measured on flat grey through the same chain; 8-bit samples', NOISE),
    case('link-8bit', 'y709', {**CHANGED, 'bit_depth': 8, 'tol': 'quantised'}, 'swscale 10->8 bits dithered (unbiased), 8->10 by x4', LINK8),
    case('x264-crf23', 'y420', {**CHANGED, 'tol': 'crf28'}, 'lossy, nothing named', enc=CRF('libx264', 23), **Y420),
    case('x264-crf35', 'y420', {**CHANGED, 'tol': 'crf35'}, 'lossy, nothing named', enc=CRF('libx264', 35), **Y420),
    case('x265-crf23', 'y420', {**CHANGED, 'tol': 'crf28'}, 'lossy, nothing named', enc=CRF('libx265', 23), **Y420),
    case('x265-crf35', 'y420', {**CHANGED, 'tol': 'crf35'}, 'lossy, nothing named', enc=CRF('libx265', 35), **Y420),
    case('rgb-headroom-expanded', 'rgbh', {**CHANGED, 'range': 'expanded', 'components': ['R', 'G', 'B'], 'lut': rounded_table(per_plane(RGB_EXPAND)), 'named': per_plane(RGB_EXPAND)},
         "R'G'B' 64..940 -> round((v-64) 1023/876) at 10 bits; fitted on the card", GEQ_RGB_EXPAND, out='png'),
    # Pairs.
    case('pair-range-matrix', 'y709', {**CHANGED, **SWS_EXPANDED, 'matrix': ['709', '601']}, 'as range-tv-pc-swscale and matrix-709-601',
         'scale=in_range=tv:out_range=pc:in_color_matrix=bt709:out_color_matrix=bt601'),
    case('pair-scale-levels', 'y709', {**CHANGED, **ZS_DOWN, 'lut': {0: lut_y_102}}, 'scale-zscale-down then levels-y-gain-offset',
         'zscale=w=480:h=270:f=spline36,' + LUT_102),
    case('pair-hflip-swap', 'y709', {**CHANGED, 'geometry': [-1, 1, 639, 0], 'swap': 'Cb-Cr'}, 'hflip and swapuv', 'hflip,swapuv'),
    case('pair-pillarbox-range', 'y709', {**CHANGED, **SWS_EXPANDED, 'geometry': [0.75, 1, 79.875, 0]}, 'pillarbox-4x3 then range-tv-pc-swscale',
         PILLARBOX + ',scale=in_range=tv:out_range=pc'),
    case('pair-crop-matrix', 'y709', {**CHANGED, 'geometry': [10 / 9, 10 / 9, -35.5, -20 + 1 / 18], 'matrix': ['709', '601']},
         'crop-zscale-back then matrix-709-601', CROP_BACK + ',' + M709_601),
    case('pair-range-x264', 'y420', {**CHANGED, 'range': 'expanded', 'tol': 'crf28', 'lut': ZIMG_EXPAND, 'named': per_plane(EXPAND)},
         'range-tv-pc-zscale then x264 CRF 23',
         'zscale=rangein=limited:range=full', enc=CRF('libx264', 23), **Y420),
    case('pair-vflip-8bit', 'y709', {**CHANGED, 'geometry': [1, -1, 0, 359], 'bit_depth': 8, 'tol': 'quantised'}, 'vflip and link-8bit', 'vflip,' + LINK8),
    case('pair-rgb-swap-ycc', 'rgb', {**CHANGED, 'swap': 'R-B', 'matrix': ['rgb', '709'], 'components': ['R', 'G', 'B']},
         'rgb-swap-r-b then range-rgb-to-ycc', RGB_SWAP + ',format=gbrp10le,zscale=matrix=709:range=limited',
         pix='yuv444p10le'),
]
EXACT = dict(verdict='bit-exact')
CASES += [case('roundtrip-' + name, card, {**EXACT, **want}, note, out='card', **how) for name, card, want, note, how in [
    ('y4m-10-422', 'y709', {}, "the program's Y4M", {}), ('y4m-8-420', 'y8_420', {}, '8 bits plain', {}),
    ('y4m-12-444', 'y12_444', {}, 'p12', {}), ('y4m-16-422', 'y16_422', {}, 'p16, BT.2020', {}),
    ('y4m-sd-601', 'sd601', {}, '720x576 4:3', {}), ('y4m-frame-3', 'y709_3frames', {}, 'third frame of three', {'frame': 2}),
    ('y4m-stdin', 'y709', {}, 'Y4M on standard input', {'stdin': True}),
    ('png-rgb-10', 'rgb', {'components': ['R', 'G', 'B']}, '16-bit RGBA PNG', {}), ('png-rgb-8', 'rgb8', {'components': ['R', 'G', 'B']}, '8 bits', {}),
    ('png-ycc', 'y709_444', {}, "Cr, Y', Cb in R, G, B", {'ext': 'png'}),
    ('tiff-rgb', 'rgb12', {'components': ['R', 'G', 'B']}, '16-bit TIFF', {'ext': 'tif'}), ('tiff-ycc', 'y709_444', {}, 'Y\'CbCr TIFF', {'ext': 'tif'}),
    ('dpx-rgb', 'rgb', {'components': ['R', 'G', 'B']}, 'descriptor 50', {'ext': 'dpx'}),
    ('dpx-709-444', 'y709_444', {}, 'descriptor 102', {'ext': 'dpx'}), ('dpx-709-422', 'y709', {}, 'descriptor 100', {'ext': 'dpx'})]]
CASES += [
    case('roundtrip-ffv1-stdin', 'y709', EXACT, 'Y4M -> FFV1 -> Y4M, piped', enc=['-c:v', 'ffv1'], stdin=True),
    case('roundtrip-png-by-ffmpeg', 'rgb', {**EXACT, 'components': ['R', 'G', 'B']}, 'RGBA64 PNG rewritten as RGB48 by ffmpeg', out='png'),
]
NOT_CARD = dict(exit=1, stderr=NO_CARD)
BROKEN = dict(exit=1)
def truncated(fraction): return lambda card, out: open(out, 'wb').write(open(card, 'rb').read()[:int(os.path.getsize(card) * fraction)])
def header_only(card, out): open(out, 'wb').write(b'YUV4MPEG2 W16384 H16384 F25:1 Ip A1:1 C444p16\nFRAME\n')
CASES += [
    case('bad-testsrc2', 'rgb', NOT_CARD, 'another test picture', src='testsrc2=s=640x360', out='png'),
    case('bad-mandelbrot', 'y709', NOT_CARD, 'a picture', src='mandelbrot=s=640x360'),
    case('bad-black', 'y709', NOT_CARD, 'black frame', src='color=c=black:s=640x360'),
    case('bad-smptebars', 'y709', NOT_CARD, 'colour bars', src='smptebars=s=640x360'),
    case('bad-4x3-card-unsaid', 'y709_4x3', NOT_CARD, '4:3 card analysed as 16:9', out='card', sent='y709'),
    case('bad-truncated-y4m', 'y709', BROKEN, 'half a frame', out='write', write=truncated(0.5)),
    case('bad-truncated-png', 'rgb', BROKEN, 'half a PNG', out='write', write=truncated(0.5), ext='png'),
    case('bad-empty-file', 'rgb', BROKEN, '0 bytes', out='write', write=truncated(0), ext='png'),
    case('bad-1x1-png', 'rgb', BROKEN, '1x1 picture, raster from the capture', src='color=c=gray:s=2x2,scale=1:1', out='png', sent=['-c', 'RGB', '-b', '10']),
    case('bad-header-only-16k', 'y709', BROKEN, '16384x16384 p16 header, no samples', out='write', write=header_only),
]
TOLERANCES = {   # scale (relative), offset (px), gain (relative), level offset (codes); None: not judged
    'lossless': (2e-4, 0.05, 1e-3, 0.25), 'noisy': (2e-4, 0.05, 3e-3, 1.0),
    'quantised': (2e-4, 0.05, 3e-3, 1.0),     # codes of an 8-bit link: a quarter code at 8 bits is one at 10
    'crf28': (2e-4, 0.05, 3e-3, 1.0), 'crf35': (2e-4, 0.1, None, None)}
NOISE_TOLERANCE = 0.1   # relative


def run(cmd, **kw):
    return subprocess.run(cmd, check=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **kw)

def read_y4m_planes(path):
    """The first frame's three planes as flat sequences of codes, pure Python (no numpy needed)."""
    with open(path, 'rb') as f:
        data = f.read()
    header, rest = data.split(b'\n', 1)
    tags = {t[:1]: t[1:].decode() for t in header.split()[1:]}
    w, h, colour = int(tags[b'W']), int(tags[b'H']), tags.get(b'C', '420jpeg')
    wide = 'p' in colour[3:] and colour[3:] != 'paldv'
    cw = w if colour.startswith('444') else (w + 1) // 2
    ch = (h + 1) // 2 if colour.startswith('420') else h
    body = rest.split(b'\n', 1)[1]
    size = 2 if wide else 1
    planes, at = [], 0
    for pw, ph in ((w, h), (cw, ch), (cw, ch)):
        chunk = body[at:at + pw * ph * size]
        planes.append(array.array('H', chunk) if wide else chunk)
        at += pw * ph * size
    return planes

def read_rgb_planes(path, bits):
    """R, G and B of a 16-bit picture as codes at the sent depth (the program stores code << (16 - bits))."""
    raw = run(FFMPEG + ['-i', path, '-f', 'rawvideo', '-pix_fmt', 'gbrp16le', '-']).stdout
    samples, shift = array.array('H', raw), 16 - bits
    g, b, r = (samples[i * len(samples) // 3:(i + 1) * len(samples) // 3] for i in range(3))
    return [[v >> shift for v in plane] for plane in (r, g, b)]

def lut_truth(planes, luts, named):
    """Gain and offset of the least-squares line through each plane's table over the card's codes, against
    what the named operation alone would give (the levels are what is left after it)."""
    gain, offset = [1.0] * 3, [0.0] * 3
    for plane, codes in enumerate(planes):
        lut, before = luts.get(plane), named.get(plane, lambda v: v)
        if lut is None:
            continue
        n = sx = sy = sxx = sxy = 0
        for code, count in Counter(codes).items():
            v, y = before(code), lut(code)
            n, sx, sy, sxx, sxy = n + count, sx + count * v, sy + count * y, sxx + count * v * v, sxy + count * v * y
        gain[plane] = (n * sxy - sx * sy) / (n * sxx - sx * sx)
        offset[plane] = (sy - gain[plane] * sx) / n
    return gain, offset

def noise_truth(work, name, without, with_noise):
    """Sigma and mean shift of each plane of a flat grey frame sent through the chain with and without noise."""
    stats = []
    for tag, vf in (('flat', without), ('noisy', with_noise)):
        out = os.path.join(work, f'{name}-{tag}.y4m')
        run(FFMPEG + ['-f', 'lavfi', '-i', 'color=c=0x808080:s=640x360,format=yuv422p10le', '-vf', vf, '-frames:v', '1',
                      '-pix_fmt', 'yuv422p10le', '-strict', '-1', out])
        stats.append([(sum(p) / len(p), (sum(v * v for v in p) / len(p) - (sum(p) / len(p)) ** 2) ** 0.5) for p in read_y4m_planes(out)])
    return [n[1] for n in stats[1]], [n[0] - f[0] for f, n in zip(*stats)]


class Suite:
    def __init__(self, args, work):
        self.args, self.work, self.cards = args, work, {}

    def card(self, key, ext=None):
        args = RENDER_ONLY[key][0] if key in RENDER_ONLY else CARDS[key]
        ext = ext or ('y4m' if '-s' in args else 'png')
        path = os.path.join(self.work, f'card-{key}.{ext}')
        if path not in self.cards:
            run([self.args.renderer] + args + [path])
            self.cards[path] = True
        return path

    def sent(self, c):
        if isinstance(c.get('sent'), list):
            return c['sent']
        key = c.get('sent') or c['card']
        return CARDS[RENDER_ONLY[key][1] if key in RENDER_ONLY else key]

    def capture(self, c):
        card = self.card(c['card'], c.get('ext') if c['out'] in ('card', 'write') else None)
        if c['out'] == 'card':
            return card
        out = os.path.join(self.work, c['name'] + '.' + {'y4m': 'y4m', 'png': 'png'}.get(c['out'], c.get('ext', 'y4m')))
        if c['out'] == 'write':
            c['write'](card, out)
            return out
        source = ['-f', 'lavfi', '-i', c['src']] if c.get('src') else ['-i', card]
        filters = ['-vf', c['vf']] if c.get('vf') else []
        if c.get('enc'):
            coded = os.path.join(self.work, c['name'] + '.mkv')
            run(FFMPEG + source + filters + ['-frames:v', '1'] + c['enc'] + [coded])
            source, filters = ['-i', coded], []
        fmt = ['-pix_fmt', 'rgb48be'] if c['out'] == 'png' else ['-pix_fmt', c['pix'], '-strict', '-1']
        run(FFMPEG + source + filters + ['-frames:v', '1'] + fmt + [out])
        return out

    def expected(self, c):
        want, sent = dict(c['want']), self.sent(c)
        bits = int(sent[sent.index('-b') + 1])
        if 'lut' in want:
            card = self.card(c['card'])
            planes = read_y4m_planes(card) if card.endswith('.y4m') else read_rgb_planes(card, bits)
            want['gain'], want['offset'] = lut_truth(planes, want.pop('lut'), want.pop('named', {}))
        if 'calibrate' in want:
            want['noise'], want['offset'] = noise_truth(self.work, c['name'], *want.pop('calibrate'))
        if 'verdict' in want:
            want.setdefault('exit', 0 if want['verdict'] in ('bit-exact', 'as-sent') else 2)
            want.setdefault('components', ['R', 'G', 'B'] if '-s' not in sent else ['Y', 'Cb', 'Cr'])
            want['pin'] = [0] + [1 << (bits - 1) if want['components'][0] == 'Y' else 0] * 2
            for key, default in (('range', 'as-sent'), ('matrix', None), ('swap', 'none'), ('geometry', [1, 1, 0, 0]),
                                 ('gain', [1, 1, 1]), ('offset', [0, 0, 0]), ('tol', 'lossless')):
                want.setdefault(key, default)
        return want

    def analyse(self, c, capture):
        cmd = [self.args.analyser, '-' if c.get('stdin') else capture] + self.sent(c) + ['--json', '-']
        if c.get('frame') is not None:
            cmd += ['--frame', str(c['frame'])]
        stdin = open(capture, 'rb') if c.get('stdin') else subprocess.DEVNULL
        # A session of its own, so a hung analyser is ended with whatever it started.
        with subprocess.Popen(cmd, stdin=stdin, stdout=subprocess.PIPE, stderr=subprocess.PIPE, start_new_session=True) as child:
            try:
                out, err = child.communicate(timeout=self.args.timeout)
            except subprocess.TimeoutExpired:
                os.killpg(child.pid, signal.SIGKILL)
                child.communicate()
                raise
            finally:
                if stdin is not subprocess.DEVNULL:
                    stdin.close()
        return subprocess.CompletedProcess(cmd, child.returncode, out, err)

    def truth(self, c, want, capture):
        """numpy's own measurement of the capture in place of the analyser's (tests/analysis/truth_check.py)."""
        import truth_check  # imported by main
        card = self.card(c['card']) if c['out'] != 'card' else capture
        answer = truth_check.measure(FFMPEG, c, want, self.sent(c), card, capture)
        if answer is None:
            return None
        return subprocess.CompletedProcess([], want['exit'], json.dumps(answer).encode(), b'')

    def one(self, c):
        try:
            want = self.expected(c)
            capture = self.capture(c)
        except subprocess.CalledProcessError as e:
            return c, {}, None, [f'making the capture failed: {" ".join(e.cmd[:8])}...: {e.stderr.decode(errors="replace").strip()[:200]}']
        try:
            result = self.truth(c, want, capture) if self.args.check_truths else self.analyse(c, capture)
        except subprocess.TimeoutExpired:
            return c, want, None, [f'hang: no answer within {self.args.timeout} s']
        if self.args.keep:
            shutil.copy(capture, self.args.keep)
        if result is None:
            return c, want, None, None
        return c, want, result, judge(want, result)


def close(measured, expected, tolerance, relative=False):
    if not isinstance(measured, (int, float)) or isinstance(measured, bool):
        return False
    return abs(measured - expected) <= (tolerance * abs(expected) if relative else tolerance)

def judge_levels(want, levels, gain_tol, code_tol):
    """Gain relative; offset where each line is pinned: at code 0 for Y' and R'G'B', at the centre for Cb and
    Cr, where a gain error within its tolerance would otherwise move the offset by half a code."""
    if gain_tol is None:
        return []
    levels = levels if isinstance(levels, dict) else {}
    gain, offset = ([x if isinstance(x, (int, float)) else None for x in levels.get(k)] if isinstance(levels.get(k), list)
                    and len(levels.get(k)) == 3 else [None] * 3 for k in ('gain', 'offset'))
    fails = []
    for i, pin in enumerate(want['pin']):
        if not close(gain[i], want['gain'][i], gain_tol, relative=True):
            fails.append(f'levels gain[{i}] {gain[i]}, expected {want["gain"][i]:.5f}')
        at = None if None in (gain[i], offset[i]) else gain[i] * pin + offset[i]
        if not close(at, want['gain'][i] * pin + want['offset'][i], code_tol):
            fails.append(f'levels offset[{i}] {offset[i]} (line at {pin}: {at}), expected {want["offset"][i]:.4f} '
                         f'(line at {pin}: {want["gain"][i] * pin + want["offset"][i]:.3f})')
    return fails

def judge(want, result):
    """The failed checks of one case, as readable lines."""
    err = result.stderr.decode(errors='replace')
    if result.returncode < 0 or any(mark in err for mark in SANITIZER_MARKS):
        return [f'crash: status {result.returncode}, {err.strip().splitlines()[-1] if err.strip() else "no message"}'[:200]]
    fails = []
    if result.returncode != want['exit']:
        fails.append(f'exit status {result.returncode}, expected {want["exit"]}' + (f' ({err.strip()[:120]})' if err.strip() else ''))
    if 'stderr' in want and want['stderr'] not in err:
        fails.append(f'standard error lacks "{want["stderr"]}"')
    if 'verdict' not in want:
        return fails
    got = parsed(result)
    if not isinstance(got, dict):
        return fails + ['standard output is not one JSON object']
    for key in ('verdict', 'components', 'range', 'swap'):
        if got.get(key) != want[key]:
            fails.append(f'{key} {got.get(key)!r}, expected {want[key]!r}')
    matrix = got.get('matrix')
    matrix = [matrix.get('from'), matrix.get('to')] if isinstance(matrix, dict) else matrix
    if matrix != want['matrix']:
        fails.append(f'matrix {matrix!r}, expected {want["matrix"]!r}')
    scale_tol, px_tol, gain_tol, code_tol = TOLERANCES[want['tol']]
    geometry = got.get('geometry') or {}
    for i, key in enumerate(('scale_x', 'scale_y', 'offset_x', 'offset_y')):
        if not close(geometry.get(key), want['geometry'][i], scale_tol if i < 2 else px_tol, relative=i < 2):
            fails.append(f'geometry {key} {geometry.get(key)}, expected {want["geometry"][i]:.4f}')
    fails += judge_levels(want, got.get('levels'), gain_tol, code_tol)
    if 'bit_depth' in want and got.get('bit_depth') != want['bit_depth']:
        fails.append(f'bit_depth {got.get("bit_depth")}, expected {want["bit_depth"]}')
    noise = got.get('noise') if isinstance(got.get('noise'), list) else [None] * 3
    for i, sigma in enumerate(want.get('noise', ())):
        if not close(noise[i], sigma, NOISE_TOLERANCE, relative=True):
            fails.append(f'noise[{i}] {noise[i]}, expected {sigma:.2f}')
    psnr = got.get('psnr') or {}
    if want['verdict'] == 'bit-exact' and any(v is not None for v in (psnr.get('raw') or [])):
        fails.append(f'psnr raw {psnr.get("raw")}, expected null (identical)')
    for raw, explained in zip(psnr.get('raw') or [], psnr.get('explained') or []):
        if isinstance(raw, (int, float)) and isinstance(explained, (int, float)) and explained < raw - 0.05:
            fails.append(f'psnr explained {explained} below raw {raw}')
    return fails


def summary(want, got):
    """The figures that say what happened, compactly: named operations, non-trivial geometry and levels."""
    if not isinstance(got, dict) or 'verdict' not in want:
        return ''
    parts = [str(got.get('verdict'))] + (['[' + '+'.join(got['measured']) + ']'] if 'measured' in got else [])
    matrix = got.get('matrix')
    for key, value, plain in (('range', got.get('range'), 'as-sent'), ('swap', got.get('swap'), 'none'),
                              ('matrix', '->'.join(map(str, matrix.values())) if isinstance(matrix, dict) else matrix, None)):
        if value != plain:
            parts.append(f'{key}={value}')
    g = got.get('geometry')
    if isinstance(g, dict) and [g.get(k) for k in ('scale_x', 'scale_y', 'offset_x', 'offset_y')] != [1, 1, 0, 0]:
        parts.append('geom=' + ','.join(f'{g.get(k, 0):.4g}' if isinstance(g.get(k), (int, float)) else '?' for k in ('scale_x', 'scale_y', 'offset_x', 'offset_y')))
    lv = got.get('levels')
    if isinstance(lv, dict) and (lv.get('gain') != [1, 1, 1] or lv.get('offset') != [0, 0, 0]):
        fmt = lambda xs: '/'.join(f'{x:.4g}' if isinstance(x, (int, float)) else '?' for x in (xs or []))
        parts.append(f'gain={fmt(lv.get("gain"))} off={fmt(lv.get("offset"))}')
    for key in ('bit_depth', 'noise'):
        if got.get(key) is not None and key in want:
            parts.append(f'{key}={got[key]:.3g}' if isinstance(got[key], (int, float)) else f'{key}=' + '/'.join(f'{x:.3g}' for x in got[key] if isinstance(x, (int, float))))
    return ' '.join(parts)

def parsed(result):
    """The analyser's JSON answer, or None."""
    try:
        return json.loads(result.stdout) if result is not None else None
    except ValueError:
        return None

def first_line(text):
    lines = text.decode(errors='replace').strip().splitlines()
    return f'"{lines[0][:60]}"' if lines else ''

def expected_text(want):
    if 'verdict' not in want:
        return f'exit {want["exit"]}' + (f', "{want["stderr"]}"' if 'stderr' in want else '')
    shown = dict(want, matrix=dict(zip(('from', 'to'), want['matrix'])) if want['matrix'] else None,
                 geometry=dict(zip(('scale_x', 'scale_y', 'offset_x', 'offset_y'), want['geometry'])),
                 levels=dict(gain=want['gain'], offset=want['offset']))
    return f'exit {want["exit"]} ' + summary(want, shown)

def print_table(rows):
    heads = ('case', 'expected', 'measured', 'result')
    verdicts = {True: 'FAIL', False: 'pass', None: '-'}
    cells = [(c['name'], expected_text(want) if want else '?', measured, verdicts[bool(fails) if fails is not None else None])
             for c, want, measured, fails in rows]
    widths = [max(len(h), *(len(r[i]) for r in cells)) for i, h in enumerate(heads)]
    for r in [heads, tuple('-' * w for w in widths)] + cells:
        print('  '.join(x.ljust(w) for x, w in zip(r, widths)).rstrip())


def main():
    p = argparse.ArgumentParser(description=__doc__.split('\n')[0])
    p.add_argument('--analyser', help='pm5544-analyse to test')
    p.add_argument('--renderer', help='pm5544, which renders the cards')
    p.add_argument('--keep', metavar='DIR', help='copy each capture here')
    p.add_argument('--only', metavar='NAME', help='run only these cases (comma-separated, shell patterns allowed)')
    p.add_argument('-j', type=int, default=2, help='cases run at once (default 2)')
    p.add_argument('--timeout', type=float, default=120, help='seconds an analysis may take')
    p.add_argument('--list', action='store_true', help='print the cases and how their figures follow, run nothing')
    p.add_argument('--check-truths', action='store_true',
                   help='measure the captures with numpy instead of running the analyser, to check the expected figures')
    args = p.parse_args()
    cases = [c for c in CASES if not args.only or any(fnmatch.fnmatch(c['name'], pat) for pat in args.only.split(','))]
    if args.list:
        for c in cases:
            print(f'{c["name"]:26s} {c["vf"] or c.get("src") or c["out"]}\n{"":26s} {c["note"]}')
        return 0
    if not cases:
        sys.exit(f'Error: no case matches "{args.only}"')
    if not (args.renderer and (args.analyser or args.check_truths)):
        p.error('--renderer and --analyser (or --check-truths) are needed')
    for role, path in (('analyser', args.analyser), ('renderer', args.renderer)):
        if path and not shutil.which(path):
            sys.exit(f'Error: the {role} "{path}" is not an executable file')
    if not shutil.which('ffmpeg'):
        print('ffmpeg not found: the suite is skipped')
        return 77
    if args.check_truths:
        try:
            sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
            import truth_check  # noqa: F401 (numpy)
        except ImportError as e:
            print(f'{e}: the check of the truths is skipped')
            return 77
    if args.keep:
        os.makedirs(args.keep, exist_ok=True)
    with tempfile.TemporaryDirectory(prefix='pm5544-suite-') as work:
        suite = Suite(args, work)
        for c in cases:   # cards first, once each, before the cases share them
            suite.card(c['card'], c.get('ext') if c['out'] in ('card', 'write') else None)
            if 'lut' in c['want']:
                suite.card(c['card'])
        with concurrent.futures.ThreadPoolExecutor(max(1, args.j)) as pool:
            done = list(pool.map(suite.one, cases))
    rows = [(c, want, ('not measured' if result is None else f'exit {result.returncode} ' + (
        summary(want, parsed(result)) if parsed(result) else first_line(result.stderr))).strip(), fails)
        for c, want, result, fails in done]
    print_table(rows)
    failed = [(c, fails) for c, _, _, fails in rows if fails]
    for c, fails in failed:
        print(f'\n{c["name"]} ({c["note"]}):\n  ' + '\n  '.join(fails))
    judged = [row for row in rows if row[3] is not None]
    print(f'\n{len(judged) - len(failed)} of {len(judged)} cases pass' + (f', {len(rows) - len(judged)} not measured' if len(judged) < len(rows) else ''))
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())

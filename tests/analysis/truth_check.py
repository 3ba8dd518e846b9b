"""Measures the suite's captures with numpy, without the analyser, so that each expected figure is checked
against what ffmpeg really did: geometry on ramps sent through the same filters, levels, noise and bit
depth on the card's flat areas against the named operations applied to the sent codes. Its answers have
the analyser's JSON keys, so the suite judges and tabulates them the same way; the named operations
themselves are taken from the case (numpy measures what is left after them)."""
import subprocess
import numpy as np

LUMA_WEIGHTS = {'601': (0.299, 0.114), '709': (0.2126, 0.0722), '2020': (0.2627, 0.0593)}   # Kr, Kb
FLAT_RADIUS = 2            # a flat pixel has the same sent codes over a 5x5 neighbourhood
GEOMETRY_FILTERS = ('zscale', 'crop', 'pad', 'hflip', 'vflip', 'scale')


def geometric_filters(vf):
    """The filters of a chain that move pixels; the others (levels, range, matrix, swaps) act per pixel."""
    kept = [f for f in (vf or '').split(',') if f.split('=')[0] in GEOMETRY_FILTERS and 'range' not in f and 'matrix' not in f]
    return ','.join(kept) or None


def y4m_planes(data):
    """The first frame of a 10- or 16-bit Y4M, chroma repeated to full size: read here, as ffmpeg would convert the
    range of a full-range file on the way."""
    header, rest = data.split(b'\n', 1)
    tags = {t[:1]: t[1:].decode() for t in header.split()[1:]}
    w, h, colour = int(tags[b'W']), int(tags[b'H']), tags[b'C']
    step_x, step_y = (1 if colour.startswith('444') else 2), (2 if colour.startswith('420') else 1)
    samples = np.frombuffer(rest.split(b'\n', 1)[1], np.uint16)
    luma, chroma = w * h, (w // step_x) * (h // step_y)
    planes = [samples[:luma].reshape(h, w)] + [samples[luma + i * chroma:luma + (i + 1) * chroma].reshape(h // step_y, w // step_x)
                                                .repeat(step_y, 0).repeat(step_x, 1) for i in range(2)]
    return np.stack(planes).astype(float)


def decode(ffmpeg, path):
    """Three planes of the first frame at 10 bits: a Y4M as it is, a 16-bit picture as R, G, B >> 6 (the
    program stores code << 6; ffmpeg's captures repeat the top bits below, which the shift drops)."""
    if path.endswith('.y4m'):
        with open(path, 'rb') as f:
            return y4m_planes(f.read())
    probe = raw_frame(ffmpeg + ['-v', 'error'], path, 'gbrp16le')
    planes = np.frombuffer(probe, np.uint16) >> 6
    h = int(subprocess.run(['ffprobe', '-v', 'error', '-show_entries', 'stream=height', '-of', 'csv=p=0', path],
                           check=True, capture_output=True).stdout)
    return planes.reshape(3, h, -1)[[2, 0, 1]].astype(float)


def raw_frame(ffmpeg, path, fmt):
    """The first frame's bytes, in the file's own sample format unless fmt is given."""
    return subprocess.run(ffmpeg + ['-i', path, '-frames:v', '1', '-f', 'rawvideo'] + (['-pix_fmt', fmt] if fmt else []) + ['-'],
                          check=True, capture_output=True).stdout


def sent_kind(sent):
    encoding = sent[sent.index('-c') + 1]
    return {'RGB': 'rgb', 'RGB-headroom': 'rgb-studio'}.get(encoding, 'ycc')


def to_unit(codes, kind):
    """Codes (10 bits) to Y' in 0..1 and Cb, Cr in -0.5..0.5, or R'G'B' in 0..1."""
    if kind == 'ycc':
        return np.stack([(codes[0] - 64) / 876, (codes[1] - 512) / 896, (codes[2] - 512) / 896])
    return (codes - 64) / 876 if kind == 'rgb-studio' else codes / 1023


def to_codes(unit, kind):
    if kind == 'ycc':
        return np.stack([64 + 876 * unit[0], 512 + 896 * unit[1], 512 + 896 * unit[2]])
    return 64 + 876 * unit if kind == 'rgb-studio' else 1023 * unit


def ycc_to_rgb(ycc, matrix):
    kr, kb = LUMA_WEIGHTS[matrix]
    y, cb, cr = ycc
    r, b = y + 2 * (1 - kr) * cr, y + 2 * (1 - kb) * cb
    return np.stack([r, (y - kr * r - kb * b) / (1 - kr - kb), b])


def rgb_to_ycc(rgb, matrix):
    kr, kb = LUMA_WEIGHTS[matrix]
    y = kr * rgb[0] + (1 - kr - kb) * rgb[1] + kb * rgb[2]
    return np.stack([y, (rgb[2] - y) / (2 * (1 - kb)), (rgb[0] - y) / (2 * (1 - kr))])


def named_operations(codes, kind, want):
    """The sent codes after the case's named operations (swap, matrix, range), before any levels."""
    unit = to_unit(codes, kind)
    if want['swap'] != 'none':
        unit = unit[[0, 2, 1]] if want['swap'] == 'Cb-Cr' else unit[[2, 1, 0]]
    out_kind = kind
    if want['matrix']:
        source, target = want['matrix']
        rgb = unit if source == 'rgb' else ycc_to_rgb(unit, source)
        unit, out_kind = (rgb, 'rgb') if target == 'rgb' else (rgb_to_ycc(rgb, target), 'ycc')
    out = to_codes(unit, out_kind)
    centre = 512 if out_kind == 'ycc' else None
    if want['range'] == 'expanded':
        out = np.stack([(p - 64) * 1023 / 876 if i == 0 or centre is None else (p - centre) * 1023 / 896 + centre
                        for i, p in enumerate(out)])
    elif want['range'] == 'compressed':
        out = np.stack([p * 876 / 1023 + 64 if i == 0 or centre is None else (p - centre) * 896 / 1023 + centre
                        for i, p in enumerate(out)])
    return out, out_kind


def flat_mask(codes):
    flat = np.ones(codes.shape[1:], bool)
    for dy in range(-FLAT_RADIUS, FLAT_RADIUS + 1):
        for dx in range(-FLAT_RADIUS, FLAT_RADIUS + 1):
            flat &= (codes == np.roll(codes, (dy, dx), axis=(1, 2))).all(axis=0)
    return flat


def effective_bits(codes, bits=10):
    ints = codes.astype(np.int64)
    for dropped in range(bits):
        if np.any(ints % (2 << dropped)):
            return bits - dropped
    return 0


def core_mean(values):
    """The mean of the values near the median: within 8 codes (an 8-bit dither's spread) or three robust
    standard deviations, whichever is wider."""
    median = np.median(values)
    spread = max(8.0, 3 * 1.4826 * np.median(np.abs(values - median)))
    return np.mean(values[np.abs(values - median) <= spread])


def robust_line(x, y):
    """The line through a robust mean of each sent level's capture values, weighted by the level's area:
    ringing of a lossy codec near edges moves a plain least-squares fit by more than the tolerances, and a
    median would be biased by the two codes a dither leaves."""
    levels, where, counts = np.unique(np.round(x, 6), return_inverse=True, return_counts=True)
    order = np.argsort(where, kind='stable')
    medians = np.array([core_mean(part) for part in np.split(y[order], np.cumsum(counts)[:-1])])
    if levels.size < 2:
        return 1.0, float(medians[0] - levels[0])
    gain, offset = np.polyfit(levels, medians, 1, w=np.sqrt(counts))
    return gain, offset


def levels_answer(ffmpeg, card, capture, want, sent_args):
    """Gain, offset and noise left on the flat areas once the named operations are applied to the sent codes;
    a flip or a whole-pixel shift is undone first."""
    kind = sent_kind(sent_args)
    sent = decode(ffmpeg, card)
    model, out_kind = named_operations(sent, kind, want)
    got = decode(ffmpeg, capture)
    scale_x, scale_y, offset_x, offset_y = want['geometry']
    columns = np.clip(np.round(scale_x * np.arange(sent.shape[2]) + offset_x).astype(int), 0, got.shape[2] - 1)
    rows = np.clip(np.round(scale_y * np.arange(sent.shape[1]) + offset_y).astype(int), 0, got.shape[1] - 1)
    got = got[:, rows][:, :, columns]
    flat = flat_mask(sent)
    gains, offsets, noise = [], [], []
    for m, g in zip(model, got):
        x, y = m[flat], g[flat]
        gain, offset = robust_line(x, y)
        gains.append(float(gain)), offsets.append(float(offset)), noise.append(float(np.std(y - gain * x - offset)))
    return dict(levels=dict(gain=gains, offset=offsets), noise=noise,
                bit_depth=effective_bits(got[:, flat]))


def geometry_answer(ffmpeg, case, want, sent_args):
    """Scale and offset per axis from a ramp sent through the case's filters: value 4096 + k x at source x, steep
    and at 16 bits so that the rounding of the samples biases no offset."""
    w, h = (int(n) for n in sent_args[sent_args.index('-d') + 1].split('x'))
    answer = {}
    for axis, slope, n in (('x', 64, w), ('y', 128, h)):
        lum = f'4096+{slope}*{axis.upper()}'
        picture = y4m_planes(subprocess.run(ffmpeg + [
            '-f', 'lavfi', '-i', f'nullsrc=s={w}x{h},format=yuv444p16le,geq=lum={lum}:cb=32768:cr=32768', '-vf', geometric_filters(case['vf']),
            '-frames:v', '1', '-f', 'yuv4mpegpipe', '-pix_fmt', 'yuv444p16le', '-strict', '-1', '-'],
            check=True, capture_output=True).stdout)[0]
        i = 0 if axis == 'x' else 1
        scale, offset = want['geometry'][i], want['geometry'][i + 2]
        line = picture[picture.shape[0] // 2] if axis == 'x' else picture[:, picture.shape[1] // 2]
        # Fit only where the centre half of the source lands, clear of borders, bars and filter tails.
        ends = sorted(scale * s + offset for s in (0.25 * n, 0.75 * n))
        where = np.arange(line.size)
        inside = (where > ends[0]) & (where < ends[1])
        a, b = np.polyfit(where[inside], line[inside], 1)
        answer['scale_' + axis], answer['offset_' + axis] = float(slope / a), float((4096 - b) / a)
    return answer


def measure(ffmpeg, case, want, sent_args, card, capture):
    """An answer in the analyser's JSON form, or None where the case has no figure numpy can check."""
    if 'verdict' not in want:
        return None
    size = tuple(int(n) for n in sent_args[sent_args.index('-d') + 1].split('x'))
    answer = {k: want[k] for k in ('verdict', 'components', 'range', 'swap')}
    answer['matrix'] = dict(zip(('from', 'to'), want['matrix'])) if want['matrix'] else None
    answer['geometry'] = dict(zip(('scale_x', 'scale_y', 'offset_x', 'offset_y'), want['geometry']))
    answer['levels'] = dict(gain=want['gain'], offset=want['offset'])
    if want['verdict'] == 'bit-exact':
        if capture == card:
            return None
        fmt = None if sent_kind(sent_args) == 'ycc' else 'gbrp16le'
        answer['verdict'] = 'bit-exact' if raw_frame(ffmpeg, card, fmt) == raw_frame(ffmpeg, capture, fmt) else 'changed'
        return answer
    measured = []
    if want['geometry'] != [1, 1, 0, 0] and geometric_filters(case['vf']) and not case.get('src'):
        answer['geometry'] = geometry_answer(ffmpeg, case, want, sent_args)
        measured.append('geometry')
    if all(abs(x) in (0, 1) or (i >= 2 and x == int(x)) for i, x in enumerate(want['geometry'])):
        answer.update(levels_answer(ffmpeg, card, capture, want, sent_args))
        measured.append('levels')
    answer['measured'] = measured
    return answer if measured else None

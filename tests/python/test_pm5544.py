"""The Python package against independent readers: ffmpeg's decoding of the program's files, and the
analyser's verdicts on captures changed in known ways."""
import os
import subprocess
import sys
import tempfile

import numpy
import pytest

import pm5544

PROGRAM = os.environ["PM5544_EXE"]
SENT = dict(encoding="709", bits=10, sampling=422)


def program_file(directory, name, *options):
    path = os.path.join(directory, name)
    subprocess.run([PROGRAM, *options, path], check=True, stdout=subprocess.DEVNULL)
    return path


def ffmpeg_planes(path, width, height, pix_fmt, chroma_width):
    raw = subprocess.run(["ffmpeg", "-loglevel", "error", "-nostdin", "-i", path, "-f", "rawvideo", "-pix_fmt",
                          pix_fmt, "-"], check=True, stdout=subprocess.PIPE).stdout
    samples = numpy.frombuffer(raw, numpy.uint16)
    luma = width * height
    return (samples[:luma].reshape(height, width), samples[luma:luma + chroma_width * height].reshape(height, chroma_width),
            samples[luma + chroma_width * height:].reshape(height, chroma_width))


@pytest.fixture(scope="module")
def directory():
    with tempfile.TemporaryDirectory() as path:
        yield path


def test_render_is_the_programs_card_as_ffmpeg_reads_it(directory):
    card = program_file(directory, "card.y4m", "-d", "320x180", "-c", "709", "-b", "10", "-s", "422")
    y, cb, cr = ffmpeg_planes(card, 320, 180, "yuv422p10le", 160)
    planar = pm5544.render(320, 180, layout="I422_10", **SENT)
    for ours, theirs in zip(planar, (y, cb, cr)):
        numpy.testing.assert_array_equal(ours[:, :theirs.shape[1]], theirs)
    full = pm5544.render(320, 180, **SENT)
    numpy.testing.assert_array_equal(full[0], y)
    numpy.testing.assert_array_equal(full[1][:, ::2], cb)
    numpy.testing.assert_array_equal(full[2][:, 1::2], cr)  # the pixels that share a chroma sample agree


def test_analyse_files_and_arrays(directory):
    card = program_file(directory, "card.y4m", "-d", "480x270", "-c", "709", "-b", "10", "-s", "422")
    assert pm5544.analyse(card, **SENT)["verdict"] == "bit-exact"
    y, cb, cr = pm5544.render(480, 270, **SENT)
    report = pm5544.analyse((y, cr, cb), **SENT)
    assert (report["verdict"], report["swap"], report["range"]) == ("changed", "Cb-Cr", "as-sent")
    graded = numpy.minimum(numpy.round(y * 1.02 + 8), 1023)
    report = pm5544.analyse(numpy.dstack((graded, cb, cr)), **SENT)
    assert report["levels"]["gain"][0] == pytest.approx(1.02, abs=1e-3)
    assert report["levels"]["offset"][0] == pytest.approx(8, abs=0.25)


def test_refusals():
    noise = numpy.random.default_rng(5544).integers(0, 1024, (270, 480, 3))
    with pytest.raises(pm5544.NoCardFound, match="no PM5544 card found"):
        pm5544.analyse(noise, **SENT)
    with pytest.raises(pm5544.Error, match="missing.y4m"):
        pm5544.analyse("missing.y4m", **SENT)
    with pytest.raises(pm5544.Error):
        pm5544.render(320, 180, encoding="no such encoding")


def test_installs_with_pip_into_a_virtual_environment(directory):
    staged = os.environ.get("PM5544_PYTHON_STAGED")
    if not staged:
        pytest.skip("no staged package")
    venv = os.path.join(directory, "venv")
    subprocess.run([sys.executable, "-m", "venv", "--system-site-packages", venv], check=True)
    python = os.path.join(venv, "bin", "python")
    subprocess.run([python, "-m", "pip", "install", "--quiet", "--no-build-isolation", "--no-deps", staged], check=True,
                   stdout=subprocess.DEVNULL)
    installed = {name: value for name, value in os.environ.items() if name != "PYTHONPATH"}
    where = subprocess.run([python, "-c", "import pm5544; print(pm5544.__file__)"], check=True, cwd=directory,
                           stdout=subprocess.PIPE, text=True, env=installed).stdout
    assert where.startswith(venv)

#!/bin/sh
# Builds and runs the library's examples against a staged install of libpm5544, as its users would:
# the C examples find it through pkg-config alone, the C++ one through CMake's find_package alone, the
# Python example through the dynamic loader.
# Their frames are checked against the program's own files read back by ffmpeg.
# Usage: scripts/check-examples.sh BUILD_DIR (a release build with the program and the library).
set -eu
cd "$(dirname "$0")/.."
build=$1
program=$build/pm5544
stage=$PWD/$build/stage
work=$PWD/$build/examples
python=${PYTHON:-/usr/bin/python3}  # Debian's, which python3-numpy and python3-png serve

fail() {
    echo "check-examples: $*" >&2
    exit 1
}

# What libpm5544-1, libpm5544-dev and python3-pm5544 hold, under /usr in the stage.
rm -rf "$stage" "$work"
mkdir -p "$work"
for component in library development python; do
    DESTDIR="$stage" cmake --install "$build" --prefix /usr --component "$component" >/dev/null
done
# Nothing installed names the tree it was built in, which a moved install would not find.
! grep -rlI "$PWD" "$stage" >&2 || fail "these installed files name $PWD"
pc_dir=$(dirname "$(find "$stage" -name pm5544.pc)")
# Only the stage's pm5544.pc is seen, with its paths moved into the stage.
export PKG_CONFIG_LIBDIR="$pc_dir" PKG_CONFIG_PATH="" PKG_CONFIG_SYSROOT_DIR="$stage"
libdir=$stage$(PKG_CONFIG_SYSROOT_DIR="" pkg-config --variable=libdir pm5544)
[ -e "$libdir/libpm5544.so.1" ] || fail "pm5544.pc names $libdir, which holds no libpm5544.so.1"

# The library is known by its SONAME and exports the header's functions, nothing else.
library=$libdir/libpm5544.so.1
readelf -d "$library" | grep -q "Library soname: \[libpm5544.so.1\]" || fail "libpm5544.so.1 has another SONAME"
sed -n 's/^PM5544_API .*[ *]\(pm5544_[a-z0-9_]*\)(.*/\1/p' include/pm5544/pm5544.h | sort >"$work/declared.txt"
nm -D --defined-only "$library" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | sort >"$work/exported.txt"
diff "$work/declared.txt" "$work/exported.txt" >&2 || fail "libpm5544 exports other symbols than the header declares"
echo "libpm5544.so.1: $(wc -l <"$work/exported.txt") functions exported, those of pm5544.h"

# The README's C example is examples/c/first_frame.c, word for word.
"$python" - <<'EOF' || fail "README.md does not show examples/c/first_frame.c as it is"
import sys
indented = "".join("    " + line if line.strip() else line for line in open("examples/c/first_frame.c"))
sys.exit(0 if indented in open("README.md").read() else 1)
EOF

make -s -C examples/c BUILD_DIR="$work"
export LD_LIBRARY_PATH="$libdir"
ldd "$work/render_v210" | grep -q "libpm5544.so.1 => $libdir/" || fail "render_v210 does not load the staged library"

# The Y'CbCr 4:2:2 10-bit samples of a Y4M file of the program: WIDTHxHEIGHT ENCODING OUTPUT.
program_samples() {
    "$program" -d "$1" -c "$2" -s 422 -b 10 --format y4m "$work/program.y4m" >/dev/null
    ffmpeg -v error -y -i "$work/program.y4m" -f rawvideo -pix_fmt yuv422p10le "$3"
}

# render_v210 at the default settings and at a width that is no whole number of 48-pixel groups:
# the file is the rows at v210's stride, and ffmpeg decodes it to the program's samples.
check_v210() {  # WIDTH HEIGHT ENCODING [ARGUMENTS...]
    width=$1 height=$2 encoding=$3
    shift 3
    "$work/render_v210" "$work/card.v210" "$@"
    size=$(stat -c %s "$work/card.v210")
    [ "$size" -eq $(((width + 47) / 48 * 128 * height)) ] || fail "v210 file of ${width}x$height has $size bytes"
    ffmpeg -v error -y -f image2 -c:v v210 -video_size "${width}x$height" -i "$work/card.v210" \
        -f rawvideo -pix_fmt yuv422p10le "$work/v210.yuv"
    program_samples "${width}x$height" "$encoding" "$work/program.yuv"
    cmp -s "$work/v210.yuv" "$work/program.yuv" || fail "v210 ${width}x$height $encoding differs from the program's Y4M"
    echo "render_v210 ${width}x$height $encoding: $size bytes, as the program renders it"
}
check_v210 1920 1080 709
check_v210 1280 720 601 1280x720 601

# first_frame writes the planes of 1920x1080 709 4:2:2 10 bits, the samples of the program's Y4M.
"$work/first_frame" >"$work/first_frame.yuv"
program_samples 1920x1080 709 "$work/program.yuv"
cmp -s "$work/first_frame.yuv" "$work/program.yuv" || fail "first_frame differs from the program's Y4M"
echo "first_frame: as the program renders it"

# render_v210 writes a device or a FIFO where it is, as root and as a user: the device stays a device,
# the FIFO a FIFO, and its reader gets the bytes of the file. As root the device is a private copy of
# /dev/null, so that a fault cannot replace the machine's own.
in_place=$work/in-place
mkdir -p "$in_place"
chmod 755 "$in_place"
check_in_place() {  # WHO DEVICE [COMMAND-PREFIX...]: render_v210 run through the prefix (setpriv)
    who=$1 device=$2
    shift 2
    "$@" "$work/render_v210" "$device" || fail "render_v210 $device as $who failed"
    [ -c "$device" ] || fail "render_v210 $device as $who put a regular file in place of the device"
    fifo=$in_place/fifo
    rm -f "$fifo" "$in_place/read"
    mkfifo -m 666 "$fifo"
    timeout 60 cat "$fifo" >"$in_place/read" &
    reader=$!
    status=0
    "$@" "$work/render_v210" "$fifo" || status=$?
    if [ "$status" -ne 0 ] || [ ! -p "$fifo" ]; then
        kill "$reader" 2>/dev/null || true
        fail "render_v210 to a FIFO as $who: status $status, the FIFO $([ -p "$fifo" ] && echo kept || echo replaced)"
    fi
    wait "$reader" || fail "the FIFO's reader as $who gave up"
    cmp -s "$in_place/read" "$work/card.v210" || fail "the FIFO's reader as $who got other bytes than the file"
    echo "render_v210 as $who: the device and the FIFO written in place"
}
"$work/render_v210" "$work/card.v210"
if [ "$(id -u)" -ne 0 ]; then
    check_in_place "$(id -un)" /dev/null
    echo "render_v210 as root: not checked (not run as root)"
else
    if mknod -m 666 "$in_place/null" c 1 3 2>/dev/null; then
        check_in_place root "$in_place/null"
    else
        echo "render_v210 as root: not checked (no device node can be made here)"
    fi
    if id nobody >/dev/null 2>&1 && setpriv --reuid=nobody --regid="$(id -g nobody)" --clear-groups \
        test -x "$work/render_v210" -a -r "$library"; then
        check_in_place nobody /dev/null setpriv --reuid=nobody --regid="$(id -g nobody)" --clear-groups
    else
        echo "render_v210 as a user: not checked (the user nobody cannot run it from $work)"
    fi
fi
# A symbolic link is written through: it stays a link, and its target holds the frame.
ln -s card.v210 "$work/link.v210"
cp "$work/card.v210" "$work/expected.v210"
: >"$work/card.v210"
"$work/render_v210" "$work/link.v210"
[ -L "$work/link.v210" ] && cmp -s "$work/card.v210" "$work/expected.v210" || fail "render_v210 replaced a symbolic link"

# The C++ example built by CMake alone: find_package(pm5544 1.0) in the stage, an install moved from /usr
# to elsewhere, gives pm5544::pm5544 with the stage's header and library.
cmake -S examples/cpp -B "$work/cpp" -DCMAKE_PREFIX_PATH="$stage/usr" >"$work/cpp.log" 2>&1 ||
    { cat "$work/cpp.log" >&2; fail "find_package(pm5544 1.0) failed in the stage"; }
cmake --build "$work/cpp" >>"$work/cpp.log" 2>&1 || { cat "$work/cpp.log" >&2; fail "card_planes did not build"; }
ldd "$work/cpp/card_planes" | grep -q "libpm5544.so.1 => $libdir/" || fail "card_planes does not load the staged library"
"$work/cpp/card_planes" 720x576 601 >"$work/card_planes.yuv"
program_samples 720x576 601 "$work/program.yuv"
cmp -s "$work/card_planes.yuv" "$work/program.yuv" || fail "card_planes differs from the program's Y4M"
# A request for another major version is refused by the version file.
mkdir -p "$work/cmake-v2"
printf 'cmake_minimum_required(VERSION 3.16)\nproject(v2 NONE)\nfind_package(pm5544 2.0 REQUIRED)\n' \
    >"$work/cmake-v2/CMakeLists.txt"
! cmake -S "$work/cmake-v2" -B "$work/cmake-v2/build" -DCMAKE_PREFIX_PATH="$stage/usr" >/dev/null 2>&1 ||
    fail "find_package(pm5544 2.0) accepted the staged version 1"
echo "card_planes: built through find_package(pm5544), as the program renders it; version 2.0 refused"

# compare_capture.py, through the staged pm5544 package, with the program's PNGs: the same card (0), a
# copy with a few pixels changed (1, and where), a capture of another size (2).
export PYTHONPATH="$stage/usr/lib/python3/dist-packages" PYTHONDONTWRITEBYTECODE=1
compare() {  # EXPECTED-STATUS ARGUMENTS...
    expected=$1
    shift
    status=0
    "$python" examples/python/compare_capture.py "$@" >"$work/compare.txt" 2>&1 || status=$?
    [ "$status" -eq "$expected" ] || { cat "$work/compare.txt" >&2; fail "compare_capture $* gave $status"; }
}
"$program" -c RGB -b 16 -d 1920x1080 "$work/rgb16.png" >/dev/null
compare 0 "$work/rgb16.png" --encoding RGB --bits 16
"$program" -c 709 -b 10 -s 422 -d 720x576 -a 4x3 "$work/sd709.png" >/dev/null
compare 0 "$work/sd709.png" --encoding 709 --bits 10 --sampling 422 --aspect 4x3
"$python" - "$work/rgb16.png" "$work/altered.png" <<'EOF'
import sys, numpy, png
width, height, rows, info = png.Reader(filename=sys.argv[1]).read()
pixels = numpy.array([numpy.asarray(row, numpy.uint16) for row in rows]).reshape(height, width, 4)
pixels[50:53, 100:104, 1] ^= 0x0100
writer = png.Writer(width, height, greyscale=False, alpha=True, bitdepth=16)
writer.write(open(sys.argv[2], "wb"), pixels.reshape(height, -1))
EOF
compare 1 "$work/altered.png" --encoding RGB --bits 16
grep -qx "bounding box: x 100..103, y 50..52 (4x3)" "$work/compare.txt" || fail "compare_capture missed the changed box"
grep -qx "differing pixels: 12 of 2073600 (0.0006%)" "$work/compare.txt" || fail "compare_capture miscounted the pixels"
compare 2 "$work/rgb16.png" --size 1280x720
# An 8-bit RGB capture of an 8-bit card (the PNG's samples' high bytes) matches; of a 10-bit one it is refused.
"$program" -c 601 -b 8 -d 1280x720 "$work/sd601.png" >/dev/null
"$python" - "$work/sd601.png" "$work/rgb8.png" <<'EOF'
import sys, numpy, png
width, height, rows, info = png.Reader(filename=sys.argv[1]).read()
pixels = numpy.array([numpy.asarray(row, numpy.uint16) for row in rows]).reshape(height, width, 4)
rgb8 = (pixels[:, :, :3] >> 8).astype(numpy.uint8).reshape(height, -1)
png.Writer(width, height, greyscale=False, bitdepth=8).write(open(sys.argv[2], "wb"), rgb8)
EOF
compare 0 "$work/rgb8.png" --encoding 601 --bits 8
compare 2 "$work/rgb8.png" --encoding 601 --bits 10
# What a BGRx sink receives from the staged library, saved as a PNG by ffmpeg, is the 8-bit card.
bgrx=$(sed -n 's/^ *PM5544_LAYOUT_BGRX = \([0-9]*\),$/\1/p' "$stage/usr/include/pm5544/pm5544.h")
[ -n "$bgrx" ] || fail "pm5544.h names no PM5544_LAYOUT_BGRX"
"$python" - "$library" "$bgrx" "$work/card.bgrx" <<'EOF' || fail "libpm5544 rendered no BGRx frame"
import ctypes, sys
lib = ctypes.CDLL(sys.argv[1])
lib.pm5544_card_new.restype = ctypes.c_void_p
lib.pm5544_last_error.restype = ctypes.c_char_p
card, layout = ctypes.c_void_p(lib.pm5544_card_new()), int(sys.argv[2])
width, height = 1280, 720
frame = ctypes.create_string_buffer(4 * width * height)
planes, strides = (ctypes.c_void_p * 1)(ctypes.addressof(frame)), (ctypes.c_size_t * 1)(4 * width)
if (lib.pm5544_set_raster(card, width, height)
        or lib.pm5544_set_encoding_name(card, b"RGB-headroom")
        or lib.pm5544_use_layout(card, layout)
        or lib.pm5544_render_frame(card, ctypes.c_int64(0), layout, planes, strides)):
    sys.exit(lib.pm5544_last_error(card).decode())
open(sys.argv[3], "wb").write(frame.raw)
EOF
ffmpeg -v error -y -f rawvideo -pix_fmt bgr0 -video_size 1280x720 -i "$work/card.bgrx" -pix_fmt rgb24 "$work/bgrx.png"
compare 0 "$work/bgrx.png" --encoding RGB-headroom --bits 8
echo "compare_capture: the same card passes (16 and 8 bits, and a BGRx frame of the library), the changed box is"
echo "    found, another size or depth refused"

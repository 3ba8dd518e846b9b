#!/bin/sh
# The whole of pm5544-analyse on a 2160p 10-bit 4:2:2 Y4M against `ffmpeg -lavfi psnr` on the same capture
# and its card, which reads both and compares them sample by sample (it aligns and names nothing).
set -eu
BUILD=${1:-build}
DIR=$(mktemp -d)
trap 'rm -rf "$DIR"' EXIT
"$BUILD/pm5544" -d 3840x2160 -c 709 -b 10 -s 422 "$DIR/card.y4m" >/dev/null
ffmpeg -loglevel error -nostdin -i "$DIR/card.y4m" -vf "lutyuv=y='clip(val*1.02+8,0,1023)'" \
       -pix_fmt yuv422p10le -strict -1 "$DIR/capture.y4m"
best() {  # the best of three runs of a command, in seconds
    for _ in 1 2 3; do
        s=$(date +%s.%N); "$@" >/dev/null 2>&1 || true; e=$(date +%s.%N)
        echo "$s $e"
    done | awk 'NR == 1 || $2 - $1 < b { b = $2 - $1 } END { printf "%.3f", b }'
}
analyse=$(best "$BUILD/pm5544-analyse" "$DIR/capture.y4m" -d 3840x2160 -c 709 -b 10 -s 422)
psnr=$(best ffmpeg -loglevel error -nostdin -i "$DIR/capture.y4m" -i "$DIR/card.y4m" -lavfi psnr -f null -)
awk -v a="$analyse" -v p="$psnr" 'BEGIN { printf "pm5544-analyse on a 2160p 10-bit 4:2:2 Y4M: %.3f s; ffmpeg -lavfi psnr: %.3f s; ratio %.2f (target <= 2.5)\n", a, p, a / p }'

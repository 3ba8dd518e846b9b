#!/bin/sh
# pm5544src against videotestsrc pattern=smpte, 250 buffers each into fakesink sync=false: the median
# of three runs of each, taken in turn.
set -e
PLUGIN_DIR=${1:-build/gstreamer}
export GST_PLUGIN_PATH="$PLUGIN_DIR" GST_REGISTRY="${TMPDIR:-/tmp}/pm5544-bench-registry.bin"
command -v gst-launch-1.0 >/dev/null || { echo "gst-launch-1.0 is not installed"; exit 0; }

seconds() {  # the wall-clock seconds of one pipeline: source, its properties, format, width, height, more caps
    start=$(date +%s.%N)
    gst-launch-1.0 -q $1 num-buffers=250 $2 ! "video/x-raw,format=$3,width=$4,height=$5$6" ! fakesink sync=false
    echo "$(date +%s.%N) $start" | awk '{ print $1 - $2 }'
}

median() { printf '%s\n' "$@" | sort -n | sed -n 2p; }

compare() {  # label, pm5544src's properties, format, width, height, more caps
    ours="" theirs=""
    for run in 1 2 3; do
        ours="$ours $(seconds pm5544src "clock=true $2" "$3" "$4" "$5" "$6")"
        theirs="$theirs $(seconds videotestsrc pattern=smpte "$3" "$4" "$5" "$6")"
    done
    o=$(median $ours) t=$(median $theirs)
    printf '%-8s %-10s %6.3f s (%4.0f fps), videotestsrc smpte %6.3f s: %.2f (target <= 0.33)\n' \
        "$1" "$3" "$o" "$(echo "$o" | awk '{ print 250 / $1 }')" "$t" "$(echo "$o $t" | awk '{ print $1 / $2 }')"
}

echo "GStreamer sources, 250 buffers into fakesink sync=false (medians of 3), pm5544src clock=true"
compare 2160p "" I422_10LE 3840 2160
compare 1080p "" v210 1920 1080
compare 1080i50 "" v210 1920 1080 ",framerate=25/1,interlace-mode=interleaved"
compare 2160p50 encoding=PQ P010_10LE 3840 2160 ",framerate=50/1"

#!/bin/sh
# The library prints and aborts nothing: neither the shared library nor any object built from tools/ or
# patterns/ (the program's own process code and the GStreamer plugin apart) may call a function that
# writes to the process's streams or ends the process. The compiler may have turned printf into puts or
# putchar, and fortified builds call the __*_chk forms, so those count too.
# Usage: library_prints_nothing.sh LIBRARY BUILD_DIR
set -u
library=$1
build=$2
forbidden='printf|vprintf|fprintf|vfprintf|puts|fputs|putchar|perror|abort|exit|_exit|_Exit'
forbidden="$forbidden|__printf_chk|__vprintf_chk|__fprintf_chk|__vfprintf_chk|__puts_chk"
forbidden="$forbidden|_ZSt4cout|_ZSt4cerr|_ZSt4clog"  # std::cout, std::cerr, std::clog
found=0
failed=0
check() {  # file, nm options...
    file=$1
    shift
    calls=$(nm "$@" --undefined-only "$file" | awk '{ print $NF }' | sed 's/@.*//' | grep -xE "$forbidden")
    if [ -n "$calls" ]; then
        echo "$file calls:" $calls
        failed=1
    fi
}
check "$library" -D
for object in $(find "$build/CMakeFiles" -name '*.o' | grep -E '\.dir/(tools|patterns)/' |
                grep -vE '/tools/gstreamer/|/(TextMemory|StopSignals)\.cpp\.o$'); do
    check "$object"
    found=$((found + 1))
done
# Every library source has an object: a handful would mean the build's layout was not understood.
if [ "$found" -lt 40 ]; then
    echo "only $found objects of tools/ and patterns/ under $build/CMakeFiles"
    failed=1
fi
exit $failed

#!/bin/sh
# The library prints and aborts nothing: neither the shared library nor any object built from tools/ or
# patterns/ (the program's own process code and the GStreamer plugin apart) may call a function that
# writes to the process's streams or ends the process. The compiler may have turned printf into puts or
# putchar, and fortified builds call the __*_chk forms, so those count too.
# Usage: library_prints_nothing.sh LIBRARY BUILD_DIR SOURCE_DIR
set -u
library=$1
build=$2
source=$3
exempt='^tools/gstreamer/|/(TextMemory|StopSignals)\.cpp'  # sources, and their objects (.cpp.o)
forbidden='printf|vprintf|fprintf|vfprintf|puts|fputs|putchar|perror|abort|exit|_exit|_Exit'
forbidden="$forbidden|__printf_chk|__vprintf_chk|__fprintf_chk|__vfprintf_chk|__puts_chk"
forbidden="$forbidden|_ZSt4cout|_ZSt4cerr|_ZSt4clog"  # std::cout, std::cerr, std::clog
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
objects=$(find "$build/CMakeFiles" -name '*.o' | grep -E '\.dir/(tools|patterns)/')
# Link-time-optimised objects hold no machine code yet, and nm sees no library calls in them.
for object in $objects; do
    if readelf -S "$object" | grep -q '\.gnu\.lto_'; then
        echo "$object is link-time-optimised: only $library can be checked in this build"
        [ $failed -eq 0 ] && exit 77
        exit 1
    fi
done
for object in $objects; do
    echo "${object#*.dir/}" | grep -qE "$exempt" && continue
    check "$object"
done
# Every source of tools/ and patterns/ was compiled here, so none went unchecked.
for file in $(cd "$source" && find tools patterns -name '*.cpp' | grep -vE "$exempt"); do
    if [ -z "$(find "$build/CMakeFiles" -path "*.dir/$file.o" | head -n 1)" ]; then
        echo "no object of $file under $build/CMakeFiles"
        failed=1
    fi
done
exit $failed

#!/bin/sh
# The library prints and aborts nothing: neither the shared library nor any object built from tools/ or
# patterns/ may call a function that writes to the process's streams or ends the process. The compiler
# may have turned printf into puts or putchar, and fortified builds call the __*_chk forms, so those
# count too.
# Usage: library_prints_nothing.sh LIBRARY OBJECT... (the objects of every source of tools/ and patterns/)
set -u
library=$1
shift
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
# Link-time-optimised objects hold no machine code yet, and nm sees no library calls in them.
for object in "$@"; do
    if readelf -S "$object" | grep -q '\.gnu\.lto_'; then
        echo "$object is link-time-optimised: only $library can be checked in this build"
        [ $failed -eq 0 ] && exit 77
        exit 1
    fi
done
for object in "$@"; do
    check "$object"
done
exit $failed

#!/bin/sh
# Compiles every source of the program for 32-bit ARM hard-float with the project's warnings
# (syntax and types only: the host's library headers stand in for the target's). Needs the
# Debian package g++-arm-linux-gnueabihf.
set -e
cd "$(dirname "$0")/.."
CXX=arm-linux-gnueabihf-g++
command -v $CXX >/dev/null || { echo "Please run: sudo apt-get install -y g++-arm-linux-gnueabihf"; exit 1; }
FLAGS=$(pkg-config --cflags libpng libtiff-4 cairo pango pangocairo fontconfig freetype2 |
        tr ' ' '\n' | grep -v '^-I/usr/include/x86_64-linux-gnu$' | tr '\n' ' ')
status=0
for f in *.cpp $(find tools patterns -name '*.cpp'); do
    $CXX -std=c++17 -O2 -Wall -Wextra -Werror -mfloat-abi=hard -I. -Itools -Ipatterns $FLAGS \
        -idirafter /usr/include/x86_64-linux-gnu -fsyntax-only "$f" || status=1
done
[ $status -eq 0 ] && echo "All sources compile for 32-bit ARM hard-float without warnings."
exit $status

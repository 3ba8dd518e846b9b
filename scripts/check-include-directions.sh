#!/bin/sh
# The tree's directions: the library (tools/, patterns/) includes only its own headers and the public
# one, never the program's (the top level) or a client's (gstreamer/, examples/); the plugin and the
# examples include only the public headers and their own; pm5544-analyse (analyse/) those and the
# program's readers of option values. Prints each wrong include; fails if any.
# Usage: scripts/check-include-directions.sh [SOURCE_DIR]
cd "${1:-$(dirname "$0")/..}" || exit 2
status=0

wrong() {  # file, included name, why
    echo "$1 includes \"$2\": $3"
    status=1
}

quoted_includes() {  # file: the names it includes in quotes
    sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"\([^"]*\)".*/\1/p' "$1"
}

for file in $(find tools patterns -name '*.h' -o -name '*.cpp' | sort); do
    for name in $(quoted_includes "$file"); do
        if [ -e "tools/$name" ] || [ -e "patterns/$name" ] || [ -e "include/$name" ] ||
            [ -e "$(dirname "$file")/$name" ]; then
            continue
        fi
        if [ -e "$name" ] || [ -e "gstreamer/$name" ] || [ -e "analyse/$name" ]; then
            wrong "$file" "$name" "the library includes a client's header"
        fi
    done
done

for file in $(find gstreamer examples -name '*.h' -o -name '*.c' -o -name '*.cpp' -o -name '*.hpp' | sort); do
    for name in $(quoted_includes "$file"); do
        [ -e "$(dirname "$file")/$name" ] || [ -e "include/$name" ] ||
            wrong "$file" "$name" "a client sees only include/ and its own files"
    done
done
for file in $(find analyse -name '*.h' -o -name '*.cpp' | sort); do
    for name in $(quoted_includes "$file"); do
        [ -e "$(dirname "$file")/$name" ] || [ -e "include/$name" ] || [ "$name" = CommandLineReading.h ] ||
            wrong "$file" "$name" "pm5544-analyse sees only include/, its own files and CommandLineReading.h"
    done
done
exit $status

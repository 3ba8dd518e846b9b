#!/bin/sh
# Installs the Debian packages given as arguments that are not installed yet.
# As root it uses apt-get; otherwise it prints the one command that would do it and fails.
missing=""
for pkg in "$@"; do
    dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" || missing="$missing $pkg"
done
[ -z "$missing" ] && exit 0
if [ "$(id -u)" -eq 0 ]; then
    echo "Installing:$missing"
    # An index that fails to fetch (a foreign architecture's, mid-sync) leaves the others usable.
    apt-get update -qq || echo "apt-get update reported errors; installing from the lists it has"
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $missing
else
    echo "Missing packages. Please run:"
    echo "  sudo apt-get install -y$missing"
    exit 1
fi

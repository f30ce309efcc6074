#!/usr/bin/env bash
# usage: packages.sh BUILD VERSION CXX
# Makes the Debian packages, and installs, uses, upgrades and removes them in a bare root.
set -euo pipefail
build=$1 version=$2 cxx=$3
command -v dpkg-shlibdeps > /dev/null || { echo "packages.sh: no dpkg-dev, skipped"; exit 77; }
work=$(mktemp -d "${TMPDIR:-/tmp}/kestrel-packages.XXXXXX")
trap 'rm -rf "$work"' EXIT
make_packages() { (cd "$work" && cpack --config "$build/CPackConfig.cmake" -B "$work/$1" -D CPACK_PACKAGE_VERSION="$1") > "$work/cpack.log" 2>&1 || { cat "$work/cpack.log"; exit 1; }; }
later=${version%.*}.$((${version##*.} + 1))
make_packages "$version"
make_packages "$later"
ls "$work/$version"

root=$work/root
mkdir -p "$root"/var/lib/dpkg/{info,updates} "$root/tmp"
touch "$root/var/lib/dpkg/status"
# What they need besides each other is on the machine and not in the root.
manage() { fakeroot dpkg --root="$root" --force-depends --force-not-root --force-script-chrootless --log=/dev/null "$@" > "$work/dpkg.log" 2>&1 || { cat "$work/dpkg.log"; exit 1; }; }
installed() { dpkg-query --admindir="$root/var/lib/dpkg" -W -f '${Package} ${Version} ${db:Status-Status}\n'; }
use() {
    test "$("$root/usr/bin/kestrel" run -e 'logStdout("runs");')" = runs
    cat > "$work/host.cpp" <<'END'
#include "kestrel.h"
#include "scr/Interpreter.h"
int main() {
    SCR::Interpreter interpreter(nullptr);
    return interpreter.compile("use text; Long n = 1;") && interpreter.execute() ? 0 : 1;
}
END
    PKG_CONFIG_PATH=$root/usr/lib/pkgconfig:$(echo "$root"/usr/lib/*/pkgconfig)
    export PKG_CONFIG_PATH
    # shellcheck disable=SC2046
    "$cxx" -std=c++20 "$work/host.cpp" -o "$work/host" $(pkg-config --cflags --libs kestrel) \
        -Wl,-rpath,"$(pkg-config --variable=libdir kestrel)"
    "$work/host"
    test ! -d "$root/usr/lib/python3" || PYTHONPATH=$root/usr/lib/python3/dist-packages python3 -B -c \
        'import kestrel; rule = kestrel.Interpreter(); rule.compile("Long n; n = 5;"); rule.execute(); assert rule["n"] == 5'
    if ls "$root"/usr/lib/postgresql/*/lib/kestrel.so > /dev/null 2>&1; then
        status=0
        rows=$("$(dirname "$0")/postgresql.sh" "$root" pg_config -A -t -c 'CREATE EXTENSION kestrel' \
            -c "SELECT kestrel.eval_numeric('result = edrDecimal(n) * 2.0;', '{\"n\": 21}')::int" \
            -c "SELECT count(*) FROM pg_extension_update_paths('kestrel') WHERE path IS NULL") || status=$?
        test $status = 77 || test "$rows" = $'42\n0' || { echo "from the server: $rows"; exit 1; }
    fi
    for text in README.md SECURITY.md docs/embedding.md; do
        test -s "$root/usr/share/doc/kestrel/$text"
    done
}

manage -i "$work/$version"/*.deb
use
manage -i "$work/$later"/*.deb
use
installed | awk -v version="$later" '$2 != version || $3 != "installed" { print "wrong: " $0; exit 1 }'
# The library alone cannot go while others need it, unless all go.
packages=$(installed | cut -d' ' -f1)
# shellcheck disable=SC2086
manage -P $packages
left=$(find "$root" -path "$root/var" -prune -o ! -type d -print)
test -z "$left" || { echo "left: $left"; exit 1; }

#!/bin/sh
# Installs the built package into a scratch prefix and uses it as a third
# party would: builds a class library and a C host out of tree, once through
# find_package(kova) and once through pkg-config, loads the library through a
# class location file, makes its component and sends it a message,
# both from the host and from the installed kova shell. Also checks the
# library's versioned name, the man page, and the .deb and .tar.gz from cpack.
#   CheckPackage.sh BUILD_DIR SOURCE_DIR WORK_DIR VERSION
set -eu
build=$1 source=$2 work=$3 version=$4
major=${version%%.*}
rm -rf "$work"
mkdir -p "$work"
prefix=$work/prefix

step() { echo "-- $*"; }
fail() { echo "FAILED: $*" >&2; exit 1; }

step "install into $prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null
libdir=$(dirname "$(find "$prefix" -name "libkova32.so.$version" | head -n 1)")
[ -n "$libdir" ] || fail "libkova32.so.$version not installed"
readelf -d "$libdir/libkova32.so.$version" | grep -q "SONAME.*\[libkova32.so.$major\]" ||
  fail "SONAME is not libkova32.so.$major"
[ -f "$prefix/share/man/man1/kova.1" ] || fail "no man page"
grep -q "kova shell" "$prefix/share/man/man1/kova.1" || fail "the man page lacks the commands"
"$prefix/bin/kova" --help >/dev/null || fail "the installed kova does not run"

# The class location file names the third party's library; the loader finds
# it on its search path.
classloc=$work/tally.loc
"$prefix/bin/kova" classloc insert TallyTM TALLY.DLL --file "$classloc" >/dev/null

run_tally() { # FOLDER: the host and the installed shell both make a Tally
  LD_LIBRARY_PATH=$1 "$1/tallyhost" "$classloc" | grep -qx "total 42" ||
    fail "tallyhost built in $1 did not add up"
  LD_LIBRARY_PATH=$1 "$prefix/bin/kova" shell --classloc "$classloc" \
    "$source/tests/package/tally/tally.kova" >"$work/shell.out" ||
    fail "kova shell could not use the library built in $1: $(cat "$work/shell.out")"
  grep -qx "= 42" "$work/shell.out" || fail "kova shell did not add up"
}

step "a class library and a host through find_package(kova)"
cmake -S "$source/tests/package/tally" -B "$work/with-cmake" -G Ninja \
  -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$work/with-cmake" >/dev/null
run_tally "$work/with-cmake"

step "the same through pkg-config kova32"
export PKG_CONFIG_PATH="$libdir/pkgconfig"
[ "$(pkg-config --modversion kova32)" = "$version" ] || fail "pkg-config reports another version"
mkdir -p "$work/with-pkg-config"
out=$work/with-pkg-config
# shellcheck disable=SC2046
c++ -std=c++20 -shared -fPIC -fvisibility=hidden $(pkg-config --cflags kova32) \
  "$source/tests/package/tally/Tally.cpp" -o "$out/libtally.so" $(pkg-config --libs kova32)
# shellcheck disable=SC2046
cc $(pkg-config --cflags kova32) "$source/tests/package/tally/TallyHost.c" -o "$out/tallyhost" \
  $(pkg-config --libs kova32) -Wl,-rpath,"$libdir"
run_tally "$out"

step "cpack: a .deb and a .tar.gz"
(cd "$work" && cpack --config "$build/CPackConfig.cmake" -B "$work/packages" >/dev/null) ||
  fail "cpack failed"
deb=$(ls "$work"/packages/*.deb)
dpkg-deb -c "$deb" | grep -q "./usr/lib/libkova32.so.$major" || fail "the .deb lacks the library"
dpkg-deb -c "$deb" | grep -q "./usr/include/kova/kernel.h" || fail "the .deb lacks the headers"
tar -tzf "$work"/packages/*.tar.gz | grep -q "bin/kova$" || fail "the archive lacks the command"
echo "-- package checked"

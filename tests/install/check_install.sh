#!/usr/bin/env bash
# Checks the installed library from the outside: installs the build tree into a scratch prefix,
# checks the layout, builds consumer.cpp against the prefix with pkg-config and with
# find_package(n7utility), runs both, builds and runs a host with its own resources and a language
# module made by the installed resource compiler, and runs the installed n7util.
#
# Usage: check_install.sh BUILD_DIR WORK_DIR CXX_COMPILER CMAKE_GENERATOR
# WORK_DIR is emptied first and kept afterwards, for a look at what went wrong.
set -euo pipefail

if (($# != 4)); then
  echo "usage: $0 BUILD_DIR WORK_DIR CXX_COMPILER CMAKE_GENERATOR" >&2
  exit 2
fi
build=$1
work=$2
cxx=$3
generator=$4
here=$(cd "$(dirname "$0")" && pwd)
prefix=$work/prefix

fail() {
  echo "check_install: FAIL: $*" >&2
  exit 1
}

rm -rf "$work"
mkdir -p "$work"
cmake --install "$build" --prefix "$prefix" >"$work/install.log"
echo "installed into $prefix"

for file in lib/libn7utility.so include/n7utility.h \
  include/n7utility/platform/base/Export.h include/n7utility/core/trace.h \
  include/n7utility/Utility/Scheduler.h lib/pkgconfig/n7utility.pc \
  lib/cmake/n7utility/n7utilityConfig.cmake lib/cmake/n7utility/n7utilityConfigVersion.cmake \
  lib/cmake/n7utility/n7utilityResources.cmake include/n7utility/platform/system/ResourceTable.h \
  bin/n7util bin/n7rc share/man/man1/n7util.1.gz share/man/man1/n7rc.1.gz \
  share/bash-completion/completions/n7util \
  share/n7utility/demo-messages; do
  [[ -e $prefix/$file ]] || fail "$file is not installed"
done
compgen -G "$prefix/lib/libn7utility.so.[0-9]*" >/dev/null || fail "no soname link installed"
# The Debian packages' copyright and changelog files are theirs alone.
[[ ! -e $prefix/share/doc ]] || fail "share/doc is installed: $(ls "$prefix/share/doc")"
private=$(find "$prefix/include" -name '*_internal.h' -o -name '*_test.h')
[[ -z $private ]] || fail "private headers installed: $private"

run_consumer() {
  local program=$1 output
  output=$("$program") || fail "$program exited with $?"
  [[ $output == OK ]] || fail "$program printed '$output', not OK"
  echo "$program: OK"
}

# pkg-config, with the warnings a careful consumer builds with: the public headers must be clean.
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
read -ra flags <<<"$(pkg-config --cflags --libs n7utility)"
libdir=$(pkg-config --variable=libdir n7utility)
"$cxx" -std=c++20 -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror \
  "$here/consumer.cpp" "${flags[@]}" -Wl,-rpath,"$libdir" -o "$work/consumer-pkgconfig"
run_consumer "$work/consumer-pkgconfig"

# The CMake package; the build tree's rpath points at the prefix.
cmake -S "$here" -B "$work/consumer-cmake" -G "$generator" -DCMAKE_CXX_COMPILER="$cxx" \
  -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF >"$work/consumer-cmake.log"
cmake --build "$work/consumer-cmake"
run_consumer "$work/consumer-cmake/consumer"

# The resource host, where it was built and copied with its res/ into a directory whose name is
# not ASCII, run in the C locale.
run_consumer "$work/consumer-cmake/resource_host"
moved="$work/Über Ort"
mkdir -p "$moved/res"
cp "$work/consumer-cmake/resource_host" "$moved/"
cp "$work/consumer-cmake/res/resource_hostRes.de.so" "$moved/res/"
LC_ALL=C run_consumer "$moved/resource_host"

# The installed tool finds the installed library through its own rpath.
version=$("$prefix/bin/n7util" --version) || fail "n7util --version exited with $?"
[[ $version =~ ^n7util\ [0-9]+\.[0-9]+\.[0-9]+$ ]] || fail "n7util --version printed '$version'"
echo "$version: OK"

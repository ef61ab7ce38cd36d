#!/usr/bin/env bash
# The library as a user gets it: installed and moved, as packages, and built anew elsewhere. Each
# time the README's example is built against it, by CMake and by pkg-config, and runs.
#   install_test.sh moved|packages|elsewhere SOURCE BUILD EXAMPLE.cpp EMULATOR CMAKE-ARGUMENT...
set -euo pipefail
what="$1" source="$2" build="$3" example="$4" emulator="$5"
shift 5
toolchain=("$@")
unset CMAKE_CXX_COMPILER_LAUNCHER DESTDIR
work="$build/installed/$what"
rm -rf "$work"
mkdir -p "$work"

fail() { echo "$*" >&2; exit 1; }

# says TEXT COMMAND...: the command succeeds and prints a line that begins so.
says() {
  local printed
  printed="$("${@:2}")" || fail "$2 has failed"
  grep -q "^$1" <<< "$printed" || fail "$2 did not print $1 but: $printed"
}

# use PREFIX: a program is built against what is installed there.
use() {
  local prefix="$1" cxx libdir headers
  headers="$prefix/include/front-panel-control"
  [[ -f "$headers/ctrlsys.h" && -f "$headers/jthread.h" ]] || fail "headers are missing"
  [[ ! -e "$headers/presetstore.h" ]] || fail "an inner header is installed"
  mkdir -p "$work/device"
  cp "$example" "$work/device/device.cpp"
  cat > "$work/device/CMakeLists.txt" <<'END'
cmake_minimum_required(VERSION 3.25)
project(device LANGUAGES CXX)
find_package(FrontPanelControl 1.0 REQUIRED COMPONENTS file store traps board)
add_executable(device device.cpp)
target_link_libraries(device FrontPanelControl::control)
file(GENERATE OUTPUT compiler CONTENT "${CMAKE_CXX_COMPILER}")
END
  libdir="$(dirname "$(find "$prefix" -name pkgconfig)")"
  cmake -S "$work/device" -B "$work/device/build" -G Ninja "${toolchain[@]}" \
    -DFrontPanelControl_DIR="$libdir/cmake/FrontPanelControl"
  cmake --build "$work/device/build"
  # shellcheck disable=SC2086 # an emulator with its arguments
  says "volume 0 -6" $emulator "$work/device/build/device"

  # A cross build finds the package in the root of its target.
  local -x PKG_CONFIG_LIBDIR="$libdir/pkgconfig"
  local sysroot=()
  [[ -z "$emulator" ]] || sysroot=(PKG_CONFIG_SYSROOT_DIR="$prefix")
  cxx="$(cat "$work/device/build/compiler")"
  # shellcheck disable=SC2046,SC2086 # one word per option
  "$cxx" -std=c++17 "$example" -o "$work/by_pkgconf" \
    $(env "${sysroot[@]}" pkg-config --cflags --libs front-panel-control) -Wl,-rpath,"$libdir"
  # shellcheck disable=SC2086
  says "volume 0 -6" $emulator "$work/by_pkgconf"
}

# pages PREFIX: each installed program says its version and has a manual page without fault.
pages() {
  local program name warnings
  for program in "$1"/bin/*; do
    name="$(basename "$program")"
    says "$name [0-9]" "$program" --version
    warnings="$(MANWIDTH=80 LC_ALL=C.UTF-8 man --warnings --local-file \
      "$1/share/man/man1/$name.1.gz" 2>&1 > "$work/$name.txt")"
    [[ -z "$warnings" ]] || fail "man $name: $warnings"
    grep -q "^NAME" "$work/$name.txt" || fail "man $name shows nothing"
  done
}

case "$what" in
  moved)
    cmake --install "$build" --prefix "$work/first" > "$work/log"
    mv "$work/first" "$work/moved"
    use "$work/moved"
    [[ -n "$emulator" ]] || pages "$work/moved"
    ;;
  packages)
    (cd "$build" && cpack -B "$work/deb" > "$work/log") || { cat "$work/log"; exit 1; }
    # The licence is the owner's to choose.
    lintian --allow-root --fail-on error --suppress-tags no-copyright-file "$work"/deb/*.deb
    mkdir -p "$work/root/var/lib/dpkg/"{updates,info} "$work/stub"
    touch "$work/root/var/lib/dpkg/"{status,available}
    # Nothing else is in that root: not what the packages depend on, nor what would keep the cache.
    ln -s /bin/true "$work/stub/ldconfig"
    PATH="$work/stub:$PATH:/usr/sbin:/sbin" fakeroot dpkg --root="$work/root" --force-depends \
      --force-script-chrootless --log=/dev/null --install "$work"/deb/*.deb 2> "$work/log" ||
      { cat "$work/log"; exit 1; }
    use "$work/root/usr"
    export LD_LIBRARY_PATH="$work/root/usr/lib"
    pages "$work/root/usr"
    # The example's own directory is built as a user copies it.
    cmake -S "$work/root/usr/share/doc/front-panel-control/examples/panel" -B "$work/panel" -G Ninja \
      -DFrontPanelControl_DIR="$work/root/usr/lib/cmake/FrontPanelControl"
    cmake --build "$work/panel"
    says "Usage: panel" "$work/panel/panel" --help
    ;;
  elsewhere)
    # Two directories, one library: the same bytes.
    for dir in here "rather far away"; do
      mkdir -p "$work/$dir"
      cp -r "$source"/{CMakeLists.txt,CHANGELOG.md,README.md,app,cmake,docs,share} "$work/$dir"
      cmake -S "$work/$dir" -B "$work/$dir/build" -G Ninja -DCONTROL_LIBRARY_TYPE=STATIC \
        "${toolchain[@]}"
      cmake --build "$work/$dir/build" --target control
    done
    cmp "$work/here/build/lib/libcontrol.a" "$work/rather far away/build/lib/libcontrol.a"
    ! grep -qF "$work" "$work/here/build/lib/libcontrol.a" || fail "the directory is in the library"
    cmake --install "$work/here/build" --prefix "$work/prefix" > "$work/log"
    use "$work/prefix"
    ;;
esac
rm -rf "$work"

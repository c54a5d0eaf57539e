#!/usr/bin/env bash
# Builds the Windows (mingw-w64, x86_64) libraries the engine, its tests and the
# lxaudio tool link: libogg, libvorbis, speexdsp, zlib and libpng from Debian's
# source packages, GoogleTest from /usr/src/googletest. Static libraries,
# installed into PREFIX with their pkg-config files. The header-only CLI11 and
# nlohmann-json are copied from the build machine's packages (libcli11-dev,
# nlohmann-json3-dev) with their CMake package files. Each library is built once:
# a stamp in PREFIX records it, so a second run only checks the stamps.
#
#   cmake/build-windows-deps.sh WORK_DIR PREFIX
#
# Debian source packages need deb-src entries in apt's sources. Run as root, this
# adds them (copied from the Debian archive entries already configured) when none exist.
set -euo pipefail

if [ $# -ne 2 ]; then
  echo "usage: $0 WORK_DIR PREFIX" >&2
  exit 2
fi
root_dir="$(cd "$(dirname "$0")/.." && pwd)"
mkdir -p "$1" "$2"
work="$(cd "$1" && pwd)"
prefix="$(cd "$2" && pwd)"
host=x86_64-w64-mingw32
jobs="${JOBS:-2}"
# Source packages built with their autotools configure script (zlib and libpng follow, below).
packages=(libogg libvorbis speexdsp)

log() { echo "== windows deps: $*" >&2; }

have_deb_src() {
  grep -rqsE '^(deb-src[[:space:]]|Types:.*deb-src)' /etc/apt/sources.list /etc/apt/sources.list.d/
}

# deb-src copies of the Debian archive entries (both one-line and deb822 formats).
enable_deb_src() {
  local list=/etc/apt/sources.list.d/lxaudio-deb-src.list
  local sources=/etc/apt/sources.list.d/lxaudio-deb-src.sources
  if [ -f /etc/apt/sources.list ]; then
    sed -nE 's/^deb([[:space:]]+\[[^]]*\])?([[:space:]]+[^[:space:]]*debian[^[:space:]]*[[:space:]].*)$/deb-src\1\2/p' \
      /etc/apt/sources.list > "$list"
    [ -s "$list" ] || rm -f "$list"
  fi
  for f in /etc/apt/sources.list.d/*.sources; do
    [ -f "$f" ] && [ "$f" != "$sources" ] || continue
    awk 'function flush() { if (isdeb && isdebian) { print block; print "" } block = ""; isdeb = 0; isdebian = 0 }
         /^[ \t]*$/ { flush(); next }
         /^#/ { next }
         /^Types:/ { if ($0 ~ /[ \t]deb([ \t]|$)/) isdeb = 1; $0 = "Types: deb-src" }
         /^URIs:/ { if ($0 ~ /debian/) isdebian = 1 }
         { block = block (block == "" ? "" : "\n") $0 }
         END { flush() }' "$f"
  done > "$sources"
  [ -s "$sources" ] || rm -f "$sources"
  if ! have_deb_src; then
    echo "No Debian archive entry found in apt's sources to copy as deb-src." >&2
    exit 1
  fi
  apt-get update -qq
}

# The unpacked source directory of a Debian source package (apt-get source).
fetch_source() {
  local name="$1" dir
  dir="$(find "$work/src" -maxdepth 1 -mindepth 1 -type d -name "$name-*" 2>/dev/null | sort | tail -1)"
  if [ -z "$dir" ]; then
    if ! have_deb_src; then
      if [ "$(id -u)" = "0" ]; then
        log "adding deb-src entries to apt's sources"
        enable_deb_src
      else
        echo "apt has no deb-src entries. As root, add them (a copy of the 'deb' lines as 'deb-src'), then run: sudo apt-get update" >&2
        exit 1
      fi
    fi
    mkdir -p "$work/src"
    # (apt warns that it downloads as root when _apt cannot write here: harmless.)
    (cd "$work/src" && apt-get source -qq "$name" 2>&1 >/dev/null | grep -v "unsandboxed as root" >&2 || true)
    if [ -z "$(find "$work/src" -maxdepth 1 -mindepth 1 -type d -name "$name-*")" ] &&
       ! apt-cache showsrc "$name" 2>/dev/null | grep -q '^Version:'; then
      # An apt cache that has never seen the deb-src lists: refresh once (root only).
      [ "$(id -u)" = "0" ] || exit 1
      apt-get update -qq
      (cd "$work/src" && apt-get source -qq "$name" > /dev/null 2>&1 || true)
    fi
    # A mirror may lag behind its index (the newest security upload not there
    # yet): fall back to the other versions apt knows, newest first.
    local version
    for version in $(apt-cache showsrc "$name" 2>/dev/null | awk '/^Version:/ { print $2 }' | sort -Vru); do
      [ -z "$(find "$work/src" -maxdepth 1 -mindepth 1 -type d -name "$name-*")" ] || break
      log "apt-get source $name failed; trying version $version"
      (cd "$work/src" && apt-get source -qq "$name=$version" > /dev/null 2>&1 || true)
    done
    dir="$(find "$work/src" -maxdepth 1 -mindepth 1 -type d -name "$name-*" 2>/dev/null | sort | tail -1)"
  fi
  [ -n "$dir" ] || { echo "apt-get source $name unpacked nothing" >&2; exit 1; }
  echo "$dir"
}

# A package with an autotools configure script; extra arguments go to configure.
build_autotools() {
  local name="$1" src stamp
  shift
  src="$(fetch_source "$name")"
  stamp="$prefix/.built-$(basename "$src")"
  if [ -f "$stamp" ]; then
    log "$(basename "$src") already built"
    return
  fi
  log "building $(basename "$src")"
  local build="$work/build/$(basename "$src")"
  rm -rf "$build"
  mkdir -p "$build"
  (cd "$build" &&
    PKG_CONFIG_LIBDIR="$prefix/lib/pkgconfig" PKG_CONFIG_PATH="" \
    CC="$host-gcc-posix" AR="$host-ar" RANLIB="$host-ranlib" CFLAGS="-O2" \
    CPPFLAGS="-I$prefix/include" LDFLAGS="-L$prefix/lib" \
    "$src/configure" --host="$host" --prefix="$prefix" --disable-shared --enable-static \
      --disable-dependency-tracking "$@" > configure.log 2>&1 ||
      { tail -40 configure.log; exit 1; }
    make -j"$jobs" > make.log 2>&1 || { tail -40 make.log; exit 1; }
    make install > install.log 2>&1 || { tail -40 install.log; exit 1; })
  touch "$stamp"
}

build_googletest() {
  local src=/usr/src/googletest version stamp
  version="$(dpkg-query -W -f='${Version}' googletest 2>/dev/null || echo unknown)"
  stamp="$prefix/.built-googletest-$version"
  if [ -f "$stamp" ]; then
    log "googletest $version already built"
    return
  fi
  log "building googletest $version"
  cmake -S "$src" -B "$work/build/googletest" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_TOOLCHAIN_FILE="$root_dir/cmake/mingw-w64-x86_64.cmake" \
    -DCMAKE_INSTALL_PREFIX="$prefix" -DBUILD_SHARED_LIBS=OFF -Dgtest_disable_pthreads=OFF \
    > "$work/build/googletest.log" 2>&1 || { tail -40 "$work/build/googletest.log"; exit 1; }
  cmake --build "$work/build/googletest" -j "$jobs" >> "$work/build/googletest.log" 2>&1 ||
    { tail -40 "$work/build/googletest.log"; exit 1; }
  cmake --install "$work/build/googletest" >> "$work/build/googletest.log" 2>&1
  touch "$stamp"
}

# zlib has a configure script of its own: the target comes from CHOST, and only
# the static library is built (no test programs).
build_zlib() {
  local src stamp build
  src="$(fetch_source zlib)"
  stamp="$prefix/.built-$(basename "$src")"
  if [ -f "$stamp" ]; then
    log "$(basename "$src") already built"
    return
  fi
  log "building $(basename "$src")"
  build="$work/build/$(basename "$src")"
  rm -rf "$build"
  mkdir -p "$build"
  (cd "$build" &&
    CHOST="$host" CC="$host-gcc-posix" AR="$host-ar" RANLIB="$host-ranlib" CFLAGS="-O2" \
    "$src/configure" --static --prefix="$prefix" > configure.log 2>&1 || { tail -40 configure.log; exit 1; }
    make -j"$jobs" libz.a > make.log 2>&1 || { tail -40 make.log; exit 1; }
    make install > install.log 2>&1 || { tail -40 install.log; exit 1; })
  touch "$stamp"
}

# Static libraries only in PREFIX: what libpng itself links (zlib) belongs in
# the Libs line that CMake's pkg_check_modules reads, not only in Libs.private.
static_pkgconfig() {
  local pc
  pc="$(readlink -f "$prefix/lib/pkgconfig/$1.pc")"
  grep -q '^Libs.private:' "$pc" || return 0
  awk '/^Libs:/ { libs = NR } /^Libs.private:/ { extra = substr($0, 15) } { line[NR] = $0 }
       END { for (i = 1; i <= NR; i++) {
               if (i == libs) print line[i] " " extra; else if (line[i] !~ /^Libs.private:/) print line[i] } }' \
    "$pc" > "$pc.tmp" && mv "$pc.tmp" "$pc"
}

# A header-only library of the build machine (the same headers serve any
# target): its include folder and its CMake package files, which locate the
# headers relative to themselves.
copy_header_only() {
  local package="$1" include="$2" config="$3" version stamp
  version="$(dpkg-query -W -f='${Version}' "$package" 2>/dev/null)" || {
    echo "$package is not installed (apt-get install $package)" >&2
    exit 1
  }
  stamp="$prefix/.copied-$package-$version"
  if [ -f "$stamp" ]; then
    log "$package $version already copied"
    return
  fi
  log "copying $package $version"
  rm -rf "$prefix/include/$include" "$prefix/share/cmake/$config"
  mkdir -p "$prefix/include" "$prefix/share/cmake"
  cp -a "/usr/include/$include" "$prefix/include/"
  cp -a "/usr/share/cmake/$config" "$prefix/share/cmake/"
  touch "$stamp"
}

mkdir -p "$work/build"
for p in "${packages[@]}"; do
  build_autotools "$p" --disable-docs --disable-examples
done
build_zlib
build_autotools libpng1.6
static_pkgconfig libpng16
copy_header_only libcli11-dev CLI CLI11
copy_header_only nlohmann-json3-dev nlohmann nlohmann_json
build_googletest
log "ready in $prefix"

#!/usr/bin/env bash
# Installs the build into a temporary prefix, then builds a program outside the
# source tree against it twice: with find_package(talvex) and with pkg-config.
#   install_test.sh BUILD-DIR OUTSIDE-PROJECT-DIR
set -u
BUILD=$1
OUTSIDE=$2
SCRATCH=$(mktemp -d "${TMPDIR:-/tmp}/talvex-install-test.XXXXXX")
trap 'rm -rf "$SCRATCH"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

if ! grep -q talvexTargets "$BUILD/cmake_install.cmake" 2>/dev/null; then
    echo "SKIP: this build has no install rules (cmake/TalvexInstall.cmake is not included)"
    exit 77
fi

PREFIX="$SCRATCH/prefix"
cmake --install "$BUILD" --prefix "$PREFIX" >"$SCRATCH/install.log" 2>&1 || { cat "$SCRATCH/install.log" >&2; fail "cmake --install"; }

PC=$(find "$PREFIX" -name talvex.pc | head -1)
[ -n "$PC" ] || fail "no talvex.pc installed"
LIBDIR=$(dirname "$(dirname "$PC")")
for f in libtalvex.so libMOXCore.so libPNXStreams.so libMOXIDOM.so libMOXHttptools.so libVLT_Crypto_Interface.so; do
    [ -e "$LIBDIR/$f" ] || fail "$f is not in $LIBDIR"
done
for h in talvex/talvex.h talvex/TALVEX.h moxcore/MOXThrowable.h pnxstreams/PNXInputStream.h moxidom/MOXIDOM.h \
         moxhttptools/HTTPMessage.h VLT_Crypto_Interface.h; do
    [ -f "$PREFIX/include/$h" ] || fail "header $h is not installed"
done
[ -f "$LIBDIR/cmake/talvex/talvexConfig.cmake" ] || fail "no talvexConfig.cmake"
[ -f "$LIBDIR/cmake/talvex/talvexConfigVersion.cmake" ] || fail "no talvexConfigVersion.cmake"

# A sanitizer build's libraries need the sanitizer runtime in the program too.
SAN_FLAGS=""
if grep -q '^TALVEX_SANITIZE:BOOL=ON' "$BUILD/CMakeCache.txt" 2>/dev/null; then
    SAN_FLAGS="-fsanitize=address,undefined"
fi

check_output() {
    local out=$1
    grep -qF 'defaults: secure sockets 1, non-blocking 0' "$out" || { cat "$out" >&2; fail "wrong defaults"; }
    grep -qF 'not implemented: error 0: The operation is not implemented by this class.' "$out" ||
        { cat "$out" >&2; fail "wrong not-implemented text"; }
    grep -qF 'secure connect to a closed port: error 5' "$out" ||
        { cat "$out" >&2; fail "the security library was not found beside the installed toolkit"; }
}

# 1. find_package(talvex); the installed libraries are found through the
#    RPATH that CMake records, no LD_LIBRARY_PATH.
cmake -S "$OUTSIDE" -B "$SCRATCH/cmake-build" -G Ninja -DCMAKE_PREFIX_PATH="$PREFIX" \
    -DCMAKE_CXX_FLAGS="$SAN_FLAGS" -DCMAKE_EXE_LINKER_FLAGS="$SAN_FLAGS" >"$SCRATCH/configure.log" 2>&1 ||
    { cat "$SCRATCH/configure.log" >&2; fail "configuring against the installed package"; }
cmake --build "$SCRATCH/cmake-build" >"$SCRATCH/build.log" 2>&1 || { cat "$SCRATCH/build.log" >&2; fail "building against the installed package"; }
env -u LD_LIBRARY_PATH "$SCRATCH/cmake-build/outside" >"$SCRATCH/cmake-run.txt" 2>&1 ||
    { cat "$SCRATCH/cmake-run.txt" >&2; fail "the find_package program failed"; }
check_output "$SCRATCH/cmake-run.txt"
cat "$SCRATCH/cmake-run.txt"

# 2. pkg-config.
export PKG_CONFIG_PATH="$LIBDIR/pkgconfig"
FLAGS=$(pkg-config --cflags --libs talvex) || fail "pkg-config talvex"
echo "pkg-config --cflags --libs talvex: $FLAGS"
c++ -std=c++17 $SAN_FLAGS -o "$SCRATCH/pc-outside" "$OUTSIDE/main.cpp" $FLAGS 2>"$SCRATCH/pc-build.log" ||
    { cat "$SCRATCH/pc-build.log" >&2; fail "building with pkg-config's flags"; }
LD_LIBRARY_PATH="$LIBDIR" "$SCRATCH/pc-outside" >"$SCRATCH/pc-run.txt" 2>&1 ||
    { cat "$SCRATCH/pc-run.txt" >&2; fail "the pkg-config program failed"; }
check_output "$SCRATCH/pc-run.txt"

# 3. The installed client runs from its bin folder.
if [ -x "$PREFIX/bin/talvex-call" ]; then
    env -u LD_LIBRARY_PATH "$PREFIX/bin/talvex-call" --help >/dev/null || fail "the installed talvex-call does not run"
fi
echo "PASS: install"

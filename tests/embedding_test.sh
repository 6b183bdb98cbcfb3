#!/usr/bin/env bash
# Installs a build tree as it stands, and builds and runs programs that have scripts in them from what is
# there and nothing else.
#   embedding_test.sh BUILD_DIRECTORY
set -euo pipefail
build=$(realpath "${1:?usage: embedding_test.sh BUILD_DIRECTORY}")
tests=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

fail() {
    echo "FAILED $*"
    exit 1
}

# check NAME PROGRAM: it prints what it should, and loses no memory where that can be seen.
check() {
    local status=0
    "$2" >"$folder/out" 2>&1 || status=$?
    diff "$tests/embedding/$1.out" "$folder/out" || fail "$2 prints something else"
    ((status == 0)) || fail "$2: status $status"
}

cmake --install "$build" --prefix "$folder/first" >"$folder/log" || fail "$(<"$folder/log")"
# A tree that is moved is found where it is.
mv "$folder/first" "$folder/root"
root=$folder/root
examples=$root/share/doc/dovrelscript/examples/embedding
library=$(dirname "$(find "$root" -name libdovrelscript.so)")

# By CMake, with the shared library.
compiler=$(sed -n 's/^CMAKE_CXX_COMPILER:[A-Z]*=//p' "$build/CMakeCache.txt")
cmake -S "$examples" -B "$folder/build" -D CMAKE_PREFIX_PATH="$root" -D CMAKE_BUILD_TYPE=Debug \
    -D CMAKE_CXX_COMPILER="$compiler" \
    -D CMAKE_CXX_FLAGS="-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror" \
    -D CMAKE_C_FLAGS="-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror" \
    >"$folder/log" 2>&1 || fail "cmake: $(<"$folder/log")"
cmake --build "$folder/build" --parallel 2 >"$folder/log" 2>&1 || fail "building: $(<"$folder/log")"
for name in configuration game_loop plugin sandbox thermostat; do
    check "$name" "$folder/build/$name"
done

# With the static one, by hand as pkg-config tells. The header takes what the compiler is asked for.
if command -v pkg-config >/dev/null; then
    export PKG_CONFIG_PATH=$library/pkgconfig
    read -ra flags <<<"$(pkg-config --cflags dovrelscript)"
    read -ra c_flags <<<"$(pkg-config --cflags dovrelscript-c)"
    read -ra c_libraries <<<"$(pkg-config --libs dovrelscript-c)"
    for package in dovrelscript dovrelscript-c; do
        [[ $(pkg-config --libs "$package") == *-ldovrelscript* ]] ||
            fail "pkg-config names no library for $package"
    done
else
    echo "pkg-config is missing: its files are not checked"
    flags=("-I$root/include" -std=c++20)
    c_flags=("-I$root/include")
    c_libraries=("-L$library" -ldovrelscript)
fi
"$compiler" "${flags[@]}" "$examples/sandbox.cpp" "$library/libdovrelscript.a" -o "$folder/static" ||
    fail "the static library does not link"
check sandbox "$folder/static"

# A program in C needs nothing of C++, with the shared library.
cc -std=c99 -Wall -Wextra -Wpedantic -Werror "${c_flags[@]}" "$examples/thermostat.c" \
    "${c_libraries[@]}" "-Wl,-rpath,$library" -o "$folder/c-shared" || fail "C does not link"
check thermostat "$folder/c-shared"
cc -std=c99 "${c_flags[@]}" "$examples/thermostat.c" "$library/libdovrelscript.a" -lstdc++ -lm \
    -o "$folder/c-static" || fail "C does not link with the static library"
check thermostat "$folder/c-static"

# Nothing of the inside can be seen, and nobody's allocator is replaced.
shown=$(nm -DC --defined-only "$library/libdovrelscript.so" | grep -vE ' (dovrel::|T dovrel_)' |
    grep -vE ' (vtable|typeinfo|typeinfo name) for dovrel::' || true)
[[ -z $shown ]] || fail "the shared library shows $shown"
if nm -C --defined-only "$library/libdovrelscript.a" | grep -E ' [TW] (operator new|operator delete|std::|DovrelScript)'; then
    fail "the static library shows its inside"
fi
echo "all passed"

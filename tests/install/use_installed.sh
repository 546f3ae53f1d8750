#!/bin/sh
# Builds programs against an installed h264_lib and runs them, with CMake and with pkg-config:
# use_installed.sh SOURCES WORK [PREFIX]
# SOURCES holds the programs; WORK is made anew; without a PREFIX the library is where the system's libraries are.
set -eu
sources=$1
work=$2
prefix=${3:-}
rm -rf "$work"
mkdir -p "$work"
cc=${CC:-cc}
cxx=${CXX:-c++}

check() {
    printed=$("$1")
    [ "$printed" = "$2" ] || {
        echo "$1 printed '$printed' instead of '$2'" >&2
        exit 1
    }
}

check_programs() {
    check "$1/c_program" "C: 8 bytes, nal_unit_type 9"
    check "$1/cxx_program" "C++: payload_type 5, 20 bytes"
    check "$1/dbgtrace_program" "outside: a message"
}

cmake -S "$sources" -B "$work/cmake" -D CMAKE_C_COMPILER="$cc" -D CMAKE_CXX_COMPILER="$cxx" \
    ${prefix:+-D CMAKE_PREFIX_PATH="$prefix"} >"$work/log"
cmake --build "$work/cmake" >>"$work/log"
check_programs "$work/cmake"

if [ -n "$prefix" ]; then
    PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name h264_lib.pc)")
    export PKG_CONFIG_PATH
    run_path=-Wl,-rpath,$(pkg-config --variable=libdir h264_lib)
else
    run_path=
fi
[ "$(pkg-config --modversion h264_lib)" = "$(pkg-config --modversion dbgtrace)" ]
mkdir "$work/pkg-config"
# shellcheck disable=SC2046,SC2086
{
    "$cc" -Wall -Wextra -Werror -pedantic -std=c11 "$sources/program.c" $(pkg-config --cflags --libs h264_lib) $run_path \
        -o "$work/pkg-config/c_program"
    "$cxx" -Wall -Wextra -Werror -pedantic -std=c++17 "$sources/program.cpp" $(pkg-config --cflags --libs h264_lib) \
        $run_path -o "$work/pkg-config/cxx_program"
    "$cc" -Wall -Wextra -Werror -pedantic -std=c11 "$sources/dbgtrace.c" $(pkg-config --cflags --libs dbgtrace) \
        $run_path -o "$work/pkg-config/dbgtrace_program"
}
check_programs "$work/pkg-config"
echo "All programs were built and run."

#!/usr/bin/env bash
# Installs the build, then does what a stranger would: finds the package by CMake and by pkg-config, compiles a small
# program against it, and lets that take a series to an Analyze pair.
#
# usage: test_package.sh BUILD_DIR SCRATCH_DIR COMPILER [EMULATOR]    (EMULATOR runs the programs of a Windows build)
set -euo pipefail

build=$1 scratch=$2 compiler=$3
run=("${@:4}")
source=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
prefix=$scratch/moved
if [ ${#run[@]} -gt 0 ]; then
    suffix=.exe
    target=(-DCMAKE_SYSTEM_NAME=Windows -DCMAKE_FIND_ROOT_PATH="$prefix")
    link=(-static-libstdc++)
    export WINEPATH=Z:$prefix/bin # where the programs find the module and its runtime
else
    suffix=''
    target=(-DCMAKE_PREFIX_PATH="$prefix")
    link=(-Wl,-rpath,"$prefix/lib")
fi

rm -rf "$scratch"
mkdir -p "$scratch"
cmake --install "$build" --prefix "$scratch/first" >/dev/null
mv "$scratch/first" "$prefix" # an installed tree may be moved

"${run[@]}" "$prefix/bin/korvane$suffix" phantom "$scratch/series" --slices 5 --size 16

# The codec module is found where it was installed, and a module is built of the one header that is for it.
"${run[@]}" "$prefix/bin/korvane$suffix" convert "$scratch/series" "$scratch/packed" --syntax rle
"$compiler" -x c -shared -fPIC -I"$prefix/include" "$source/../../examples/packed_codec.c" -o "$scratch/packed_codec"

# takes_a_series PROGRAM: 5 slices of 16 x 16 make a header of 348 bytes and 2560 bytes of 16-bit samples.
takes_a_series() {
    mkdir "$1.out"
    (cd "$1.out" && "${run[@]}" "$1$suffix" "$scratch"/series/*)
    [ "$(stat -c %s "$1.out/volume.hdr")" -eq 348 ]
    [ "$(stat -c %s "$1.out/volume.img")" -eq 2560 ]
}

cmake -S "$source" -B "$scratch/stranger" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" "${target[@]}" >/dev/null
cmake --build "$scratch/stranger" >/dev/null
# A stranger need not link libstdc++ as the module does; a program with the compiler's own DLL of it works as well.
[ -z "$suffix" ] || cp "$("$compiler" -print-file-name=libstdc++-6.dll)" "$scratch/stranger"
takes_a_series "$scratch/stranger/stranger"
"${run[@]}" "$scratch/stranger/old_paths$suffix"

# A program of the toolkit archive alone finds the installed codecs from the package's own folder of programs, and on
# Linux from anywhere by the system's path of libraries.
cp "$scratch/stranger/toolkit_alone$suffix" "$prefix/bin"
[ -z "$suffix" ] || cp "$scratch/stranger/libstdc++-6.dll" "$prefix/bin"
"${run[@]}" "$prefix/bin/toolkit_alone$suffix"
[ -n "$suffix" ] || LD_LIBRARY_PATH=$prefix/lib "$scratch/stranger/toolkit_alone"

read -ra flags <<<"$(PKG_CONFIG_PATH=$prefix/lib/pkgconfig pkg-config --cflags --libs korvane)"
"$compiler" -std=c++20 "$source/../../examples/series_to_analyze.cpp" -o "$scratch/by_pkg_config$suffix" \
    "${flags[@]}" "${link[@]}"
takes_a_series "$scratch/by_pkg_config"
cmp "$scratch/stranger/stranger.out/volume.img" "$scratch/by_pkg_config.out/volume.img"

# The Kit: each example does its work; the README's refuses what would make no true volume.
on_the_kit() { "${run[@]}" "$scratch/stranger/$1$suffix" "${@:2}"; }
on_the_kit series_to_volume "$scratch/series" "$scratch/kit_volume"
cmp "$scratch/kit_volume.img" "$scratch/by_pkg_config.out/volume.img"
on_the_kit series_to_volume "$scratch/packed" "$scratch/unpacked"
cmp "$scratch/kit_volume.img" "$scratch/unpacked.img"
on_the_kit oblique_picture "$scratch/series" "$scratch/oblique.png"
[ -s "$scratch/oblique.png" ]
on_the_kit edit_data_set "$(find "$scratch/series" -type f | head -1)" "$scratch/edited.dcm"
grep -q edited "$scratch/edited.dcm"
on_the_kit send_and_receive "$scratch/received" "$scratch/series" | grep -q "5 sent, 5 stored"
on_the_kit make_medium "$scratch/medium" "$scratch/series" | grep -q "5 files of 1 patients"
read -ra flags <<<"$(PKG_CONFIG_PATH=$prefix/lib/pkgconfig pkg-config --cflags --libs korvane-kit)"
"$compiler" -std=c++20 "$source/../../examples/series_to_volume.cpp" -o "$scratch/kit_by_pkg_config$suffix" "${flags[@]}" "${link[@]}"
"${run[@]}" "$scratch/kit_by_pkg_config$suffix" "$scratch/series" "$scratch/kit_volume"
kit_refuses() {
    ! on_the_kit series_to_volume "$2" "$scratch/refused" 2>"$scratch/message"
    grep -q "$1" "$scratch/message"
    [ ! -e "$scratch/refused.img" ]
}
mkdir "$scratch/both" "$scratch/empty"
"${run[@]}" "$prefix/bin/korvane$suffix" phantom "$scratch/both/other" --slices 5 --size 16 --oblique
cp -r "$scratch/series" "$scratch/both"
kit_refuses "2 series" "$scratch/both"
kit_refuses "no DICOM files" "$scratch/empty"

# The sample decodes with the codec module, and refuses what would make no true volume; then there is no file.
refuses() {
    rm -rf "$scratch/none" && mkdir "$scratch/none" && cd "$scratch/none"
    ! "${run[@]}" "$scratch/by_pkg_config$suffix" "${@:2}" 2>message
    grep -q "$1" message
    [ ! -e volume.img ]
}
(cd "$scratch" && "${run[@]}" "$scratch/by_pkg_config$suffix" "$scratch"/packed/* && cmp volume.img by_pkg_config.out/volume.img)
"${run[@]}" "$prefix/bin/korvane$suffix" phantom "$scratch/other" --slices 5 --size 16 --oblique
refuses "another series" "$scratch"/series/* "$scratch"/other/*
refuses "usage"
codec=$(find "$prefix" -name 'DcmCodec*' -type f | head -1)
mv "$codec" "$scratch/away"
refuses "$scratch/packed" "$scratch"/packed/*
kit_refuses "no codec" "$scratch/packed"
mv "$scratch/away" "$codec"

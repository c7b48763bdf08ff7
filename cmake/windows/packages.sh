#!/usr/bin/env bash
# Makes what the 32-bit Windows build needs and Debian does not package for that target. From Debian's sources, as static
# libraries: ftplib, libpng, the libraries of the codec module, and GoogleTest. Also copies the header-only libraries of the
# program and the tests, since the folder of the machine's other headers must not be searched.
#
# usage: packages.sh DESTINATION    (include/, lib/ and share/cmake/ there; the file "complete" comes last)
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
destination=$1
work=$destination/work
triplet=i686-w64-mingw32
flags=(-msse2 -mfpmath=sse -mstackrealign)

die() {
    printf 'packages.sh: %s\n' "$*" >&2
    exit 1
}

# The lists of the machine's own binary repositories of Debian, as source repositories.
list_sources() {
    apt-get indextargets --format '$(CREATED_BY) deb-src $(REPO_URI) $(RELEASE) $(COMPONENT) $(ORIGIN)' |
        sed -n 's/^Packages \(.*\) Debian$/\1/p' | sort -u
}

# fetch_sources NAME...: unpacks Debian's source packages to $work/NAME each.
# It keeps package lists of its own, so nothing of the machine is changed and no root rights are needed.
fetch_sources() {
    local apt=$work/apt log=$work/apt.log name version
    mkdir -p "$apt/lists/partial"
    list_sources >"$apt/sources.list"
    [ -s "$apt/sources.list" ] || die "this machine lists no Debian repository (apt-get update?)"
    local options=(-q -o Dir::Etc::SourceList="$apt/sources.list" -o Dir::Etc::SourceParts=/dev/null
        -o Dir::State::Lists="$apt/lists" -o Dir::Cache::PkgCache= -o Dir::Cache::SrcPkgCache=
        -o APT::Sandbox::User= -o APT::Update::Post-Invoke::=)
    apt-get "${options[@]}" update >"$log" 2>&1 || die "cannot list source packages: $(tail -n 3 "$log")"
    for name in "$@"; do
        mkdir "$work/$name.package"
        # A mirror may list a version before it has the files: take the newest one that can be fetched.
        for version in $(apt-cache "${options[@]}" showsrc "$name" | sed -n 's/^Version: //p' | sort -ruV); do
            (cd "$work/$name.package" &&
                apt-get "${options[@]}" source --download-only "$name=$version") >"$log" 2>&1 || continue
            dpkg-source --extract "$work/$name.package/"*.dsc "$work/$name" >"$log" 2>&1 && break
        done
        [ -d "$work/$name" ] || die "cannot get the source package $name:"$'\n'"$(tail -n 5 "$log")"
    done
}

# build_by_cmake NAME SOURCE [OPTION...]
build_by_cmake() {
    local name=$1 build=$work/$1.build
    {
        cmake -S "$2" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_SYSTEM_NAME=Windows \
            -DCMAKE_FIND_ROOT_PATH="$destination" -DCMAKE_INSTALL_PREFIX="$destination" \
            -DCMAKE_C_COMPILER="$triplet-gcc-posix" -DCMAKE_CXX_COMPILER="$triplet-g++-posix" \
            -DCMAKE_C_FLAGS="${flags[*]}" -DCMAKE_CXX_FLAGS="${flags[*]}" "${@:3}" &&
            cmake --build "$build" && cmake --install "$build"
    } >"$build.log" 2>&1 || die "building $name failed:"$'\n'"$(tail -n 20 "$build.log")"
}

build_ftplib() {
    local source=$work/ftplib/src
    "$triplet-gcc-posix" -O2 -w "${flags[@]}" -include "$here/resolver.h" -c "$source/ftplib.c" -o "$work/ftplib.o"
    "$triplet-ar" rcs "$destination/lib/libftp.a" "$work/ftplib.o"
    # Its header takes it for a DLL; here it is a part of one.
    sed 's/__declspec(dllimport)/extern/' "$source/ftplib.h" >"$destination/include/ftplib.h"
}

# zlib is packaged for the target; a copy of its static library makes sure that the DLL is not linked.
build_libpng() {
    cp "/usr/$triplet/include/"z{lib,conf}.h "$destination/include/"
    cp "/usr/$triplet/lib/libz.a" "$destination/lib/"
    build_by_cmake libpng "$work/libpng1.6" -DPNG_SHARED=OFF -DPNG_TESTS=OFF -DPNG_EXECUTABLES=OFF
}

# What the codec module decodes JPEG and JPEG 2000 with.
build_codec_libraries() {
    build_by_cmake libjpeg-turbo "$work/libjpeg-turbo" -DENABLE_SHARED=OFF -DWITH_TURBOJPEG=OFF -DREQUIRE_SIMD=ON \
        -DCMAKE_SYSTEM_PROCESSOR=i686
    build_by_cmake openjpeg2 "$work/openjpeg2" -DBUILD_SHARED_LIBS=OFF -DBUILD_CODEC=OFF
}

# Their packages for CMake name the folder that they lie in, hence copies.
copy_headers() {
    cp -r /usr/include/CLI /usr/include/nlohmann /usr/include/eigen3 "$destination/include/"
    cp -r /usr/share/cmake/CLI11 /usr/share/cmake/nlohmann_json "$destination/share/cmake/"
    cp -r /usr/share/eigen3 "$destination/share/"
}

rm -rf "$destination"
mkdir -p "$destination/include" "$destination/lib" "$destination/share/cmake" "$work"
copy_headers
fetch_sources ftplib libpng1.6 libjpeg-turbo openjpeg2
build_ftplib
build_libpng
build_codec_libraries
build_by_cmake GoogleTest /usr/src/googletest -DBUILD_GMOCK=OFF
rm -rf "$work"
touch "$destination/complete"

#!/usr/bin/env bash
# Makes, for the 32-bit Windows build, what Debian does not package for that target: ftplib and GoogleTest, from
# Debian's sources, and the header-only libraries of the program and the tests, apart from the system's other headers.
#
# usage: packages.sh DESTINATION    (include/, lib/ and share/cmake/ there; the file "complete" comes last)
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
destination=$1
work=$destination/work
triplet=i686-w64-mingw32

die() {
    printf 'packages.sh: %s\n' "$*" >&2
    exit 1
}

# The lists of the machine's own binary repositories of Debian, as source repositories.
list_sources() {
    apt-get indextargets --format '$(CREATED_BY) deb-src $(REPO_URI) $(RELEASE) $(COMPONENT) $(ORIGIN)' |
        sed -n 's/^Packages \(.*\) Debian$/\1/p' | sort -u
}

# fetch_source NAME: unpacks Debian's source package, of the same version as the machine's own, to $work/NAME.
# Lists of its own: nothing of the machine's is changed, and no root rights are needed.
fetch_source() {
    local name=$1 apt=$work/apt log=$work/$1.log
    mkdir -p "$apt/lists/partial" "$work/$name.package"
    list_sources >"$apt/sources.list"
    [ -s "$apt/sources.list" ] || die "this machine lists no Debian repository (apt-get update?)"
    local options=(-q -o Dir::Etc::SourceList="$apt/sources.list" -o Dir::Etc::SourceParts=/dev/null
        -o Dir::State::Lists="$apt/lists" -o Dir::Cache::PkgCache= -o Dir::Cache::SrcPkgCache=
        -o APT::Sandbox::User= -o APT::Update::Post-Invoke::=)
    {
        apt-get "${options[@]}" update &&
            (cd "$work/$name.package" && apt-get "${options[@]}" source --download-only "$name") &&
            dpkg-source --extract "$work/$name.package/"*.dsc "$work/$name"
    } >"$log" 2>&1 || die "cannot get the source package $name:"$'\n'"$(tail -n 5 "$log")"
}

build_ftplib() {
    fetch_source ftplib
    local source=$work/ftplib/src
    "$triplet-gcc-posix" -O2 -w -msse2 -mfpmath=sse -mstackrealign -include "$here/resolver.h" \
        -c "$source/ftplib.c" -o "$work/ftplib.o"
    "$triplet-ar" rcs "$destination/lib/libftp.a" "$work/ftplib.o"
    # Its header takes it for a DLL; here it is a part of one.
    sed 's/__declspec(dllimport)/extern/' "$source/ftplib.h" >"$destination/include/ftplib.h"
}

build_googletest() {
    local build=$work/googletest
    {
        cmake -S /usr/src/googletest -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_GMOCK=OFF \
            -DCMAKE_SYSTEM_NAME=Windows -DCMAKE_C_COMPILER="$triplet-gcc-posix" \
            -DCMAKE_CXX_COMPILER="$triplet-g++-posix" -DCMAKE_CXX_FLAGS="-msse2 -mfpmath=sse -mstackrealign" &&
            cmake --build "$build" && cmake --install "$build" --prefix "$destination"
    } >"$build.log" 2>&1 || die "building GoogleTest failed:"$'\n'"$(tail -n 20 "$build.log")"
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
build_googletest
build_ftplib
rm -rf "$work"
touch "$destination/complete"

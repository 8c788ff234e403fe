#!/bin/sh
# Builds the examples with nothing but pkg-config's words and a compiler, and runs them.
#
#   pkgconfig_consumer.sh EXAMPLES LIBRARY_FOLDER OUTPUT_FOLDER COMPILER [FLAGS...]
set -eu
examples=$1 libraries=$2 output=$3
shift 3
export PKG_CONFIG_PATH="$libraries/pkgconfig" LD_LIBRARY_PATH="$libraries"
rm -rf "$output"
mkdir -p "$output"
cd "$output"

flags=$("${PKG_CONFIG:-pkg-config}" --cflags VRX_talker_norvo)
libs=$("${PKG_CONFIG:-pkg-config}" --libs VRX_talker_norvo)
for expected in "$examples"/*.txt; do
    name=$(basename "$expected" .txt)
    [ "$name" != CMakeLists ] || continue
    "$@" -std=c++20 $flags "$examples/$name.cpp" -o "$name" $libs
    "./$name" >"$name.printed"
    cmp "$name.printed" "$expected"
    echo "$name: as expected"
done

# A host takes the header alone, and the plug-in at run time.
"$@" -std=c++20 $flags "$examples/minimal_host.cpp" -o minimal_host
result=0
printed=$(./minimal_host "$libraries/VRX_talker_norvo.so" "servport=1") || result=$?
echo "minimal_host: $result: $printed"
[ "$result" -eq 3 ]
[ "$printed" = "CVRXTalker::Configure: 'server' argument missing" ]

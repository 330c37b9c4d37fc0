#!/bin/sh
# Installs the build into a temporary prefix, then builds every example against the installed
# files through pkg-config and through find_package(zemdc), and runs them; runs each example's
# own build line from the source tree; and runs the installed tool.
# Usage: install_test.sh SOURCE_DIR BUILD_DIR
set -eu
SRC=$1
BUILD=$2
T=$(mktemp -d)
trap 'rm -rf "$T"' EXIT
cmake --install "$BUILD" --prefix "$T/prefix" > "$T/install.log"
P=$T/prefix
LIBDIR=$(dirname "$(find "$P" -name zemdc.pc)")/..
for lib in zemdc zemcore zemstream; do
    for f in lib$lib.so lib$lib.so.2022 lib$lib.so.2022.3.0; do
        [ -e "$LIBDIR/$f" ] || { echo "missing $f"; exit 1; }
    done
done
for h in zemdc.h zemcore.h zemstream.h; do [ -e "$P/include/$h" ] || { echo "missing $h"; exit 1; }; done

REL=$(realpath --relative-to="$SRC" "$BUILD")
export PKG_CONFIG_PATH="$LIBDIR/pkgconfig"
mkdir "$T/pc" "$T/lines"
for src in "$SRC"/examples/*.c; do
    name=$(basename "$src" .c)
    # shellcheck disable=SC2046
    cc -std=c99 "$src" $(pkg-config --cflags --libs zemdc) -Wl,-rpath,"$(pkg-config --variable=libdir zemdc)" \
        -o "$T/pc/$name"
    "$T/pc/$name" > /dev/null || { echo "pkg-config build of $name fails"; exit 1; }
    # The example's own build line, as written, from the source tree (the build directory named).
    line=$(grep -m1 '^ \*   cc ' "$src" | sed "s/^ \*   //; s# \*/\$##; s#build/release#$REL#g; s#-o $name\$#-o $T/lines/$name#")
    (cd "$SRC" && eval "$line") || { echo "the build line of $name fails: $line"; exit 1; }
    "$T/lines/$name" > /dev/null || { echo "$name built by its line fails"; exit 1; }
done

mkdir "$T/cm"
cat > "$T/cm/CMakeLists.txt" <<CM
cmake_minimum_required(VERSION 3.25)
project(zemdc_consumer C)
find_package(zemdc 2022 REQUIRED)
file(GLOB examples "$SRC/examples/*.c")
foreach(src \${examples})
  get_filename_component(name \${src} NAME_WE)
  add_executable(\${name} \${src})
  target_link_libraries(\${name} PRIVATE zemdc::zemdc)
endforeach()
CM
cmake -S "$T/cm" -B "$T/cm/build" -DCMAKE_PREFIX_PATH="$P" > "$T/cm.log"
cmake --build "$T/cm/build" > "$T/cm-build.log"
for src in "$SRC"/examples/*.c; do
    name=$(basename "$src" .c)
    "$T/cm/build/$name" > /dev/null || { echo "find_package build of $name fails"; exit 1; }
done

printf 'the installed tool, once around\n' > "$T/in"
"$P/bin/zemdc" -F lz4 -c "$T/in" | "$P/bin/zemdc" -d | cmp - "$T/in"
echo "install test passed"

#!/usr/bin/env bash
# Makes the Debian packages twice and compares them, builds an example against the development files, installs all packages with apt
# into a new system that has nothing else, and runs packages_inside.sh there. Results of the build tree are what it compares with.
# Arguments: the build folder, the folder of the sources, and one to work in.
set -euo pipefail
build=$1 source=$2 work=$3

rm -rf "$work"
mkdir -p "$work"/inside/expected
cd "$work"

# The packages; the same bytes come out of two runs.
export SOURCE_DATE_EPOCH=1700000000
for run in packages again; do
    cpack --config "$build/CPackConfig.cmake" -B "$run" >"$run.log" || { cat "$run.log" >&2; exit 1; }
    rm -r "$run/_CPack_Packages"
done
diff -r packages again
(cd packages && dpkg-scanpackages --multiversion . 2>/dev/null >Packages)

# An example, built against the files of two packages. As on Debian /lib is a link, and the prefix that is searched leads over it.
for package in libko-dev libko0; do
    dpkg-deb --extract packages/${package}_*.deb root
done
ln -s usr/lib root/lib
cmake -S root/usr/share/doc/libko-dev/examples -B examples -G Ninja -DCMAKE_PREFIX_PATH="$work/root" -DCMAKE_SKIP_RPATH=ON >/dev/null
cmake --build examples --target file_cpp >/dev/null

# What the system is to give: the results of the build tree.
cp "$source/tests/install/packages_inside.sh" "$source/examples/enhance.py" "$source/samples/coffee.png" "$source/samples/face.jpg" examples/file_cpp inside
cd inside
"$build/bin/ko" --version | head -n 1 >expected/version
"$build/bin/ko" enhance coffee.png -o expected/coffee.png --quiet
"$build/bin/ko" redeye face.jpg -o expected/face.jpg --quiet
export LD_LIBRARY_PATH=$build/bin
./file_cpp coffee.png expected/enhanced.jpg >expected/example
ldd file_cpp | grep -c glibc-hwcaps >loaded || true
unset LD_LIBRARY_PATH
cd ..

# The sources of this system's own packages.
mirrors=()
for file in /etc/apt/sources.list /etc/apt/sources.list.d/debian.sources /etc/apt/sources.list.d/ubuntu.sources; do
    [[ ! -s $file ]] || mirrors+=("$file")
done
suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
TMPDIR=$work mmdebstrap --variant=essential --aptopt='APT::Sandbox::User "root"' \
    --include=ko,libko-dev,libko-koio,python3-ko,python3-pil \
    --customize-hook='copy-in inside /' --customize-hook='chroot "$1" sh /inside/packages_inside.sh' \
    "$suite" /dev/null "${mirrors[@]}" "deb [trusted=yes] copy:$work/packages ./"
rm -rf root examples

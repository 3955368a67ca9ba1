#!/bin/sh
# Runs in the system that packages_test.sh makes. Nothing of the build is there but the installed packages, the pictures and the
# program of the example.
set -eu
cd /inside
packages="ko libko-dev libko-koio python3-ko libko0"

# The program finds its model by its own place, which it reads in /proc; not everywhere may that be mounted.
model=
[ -e /proc/self/exe ] || model="--model /usr/share/ko/redeye/redeye.cfg"

fail() {
    echo "$*" >&2
    exit 1
}

# The program: the bytes of the build tree's, on both builds of the library.
for tunables in "" glibc.cpu.hwcaps=-AVX2; do
    export GLIBC_TUNABLES="$tunables"
    rm -rf results
    mkdir results
    ko --version | head -n 1 >results/version
    ko enhance coffee.png -o results/coffee.png --quiet
    ko redeye face.jpg $model -o results/face.jpg --quiet
    ./file_cpp coffee.png results/enhanced.jpg >results/example
    for file in expected/*; do
        cmp "$file" "results/${file#expected/}"
    done
done
unset GLIBC_TUNABLES
ldd file_cpp | grep -c glibc-hwcaps | cmp loaded - || fail "the loader prefers another build"

# Python: the pixels of the program.
python3 enhance.py coffee.png results/python.png | grep -q '^enhanced '
python3 - <<'END'
import numpy
from PIL import Image
picture, program, python = (numpy.asarray(Image.open(name)) for name in ("coffee.png", "expected/coffee.png", "results/python.png"))
assert (python == program).all() and (python != picture).any()
END
ldd /usr/lib/python3/dist-packages/ko/_ko.*.so | grep -qE 'libko\.so\.0 => /(usr/)?lib/' || fail "Python has another copy of the library"

# Each of the others asks for the library's package.
for package in ko libko-dev libko-koio python3-ko; do
    dpkg-query --show --showformat='${Depends}' "$package" | grep -q 'libko0 (' || fail "$package does not depend on libko0"
done

# Nothing lies outside /usr, and nothing remains.
for package in $packages; do
    dpkg-query --listfiles "$package"
done | sort -u >files
if grep -vE '^/(\.|usr(/.*)?)$' files; then
    fail "files outside /usr"
fi
ldconfig -p | grep -q 'libko\.so\.0 ' || fail "the loader's cache lacks the library"
dpkg --purge $packages >purge.log 2>&1 || fail "$(cat purge.log)"
while read -r file; do
    if [ -e "$file" ] && [ "$file" != /. ] && ! dpkg-query --search "$file" >/dev/null 2>&1; then
        fail "$file remains"
    fi
done <files
if grep 'not empty' purge.log; then
    fail "folders remain"
fi
if ldconfig -p | grep libko; then
    fail "the loader's cache still has the library"
fi

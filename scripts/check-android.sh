#!/usr/bin/env bash
# Compiles and links the library for 32-bit ARM Android (armeabi-v7a, API level 21) as far as that goes without an NDK:
# clang and lld, libc++'s headers from Debian, and musl's headers as a C library without glibc's extras. What a C or C++
# runtime would bring stays undefined. Fails when the result uses a function that Android 21 lacks, is not an ELF for
# 32-bit ARM named libquarvel.so, exports anything but the C_ functions, or needs text relocations.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh build targets

api=21
llvm=14
sysroot=build/sysroot/musl-armhf
out=build/android-check
scripts/make-sysroot.sh armhf $sysroot musl-dev libpcsclite-dev libssl-dev zlib1g-dev libp11-kit-dev

fail() {
    echo "Android check: $*" >&2
    exit 1
}

if grep -rnE '#include <(sys/timeb|execinfo|glob|wordexp|threads|regex|filesystem)(\.h)?>|thread_local' pkcs11 util; then
    fail "a header or keyword that the target does not have, or that the library does without"
fi

mkdir -p $out
flags=(--target=armv7a-linux-androideabi$api -std=c++17 -Os -fPIC -fvisibility=hidden -fvisibility-inlines-hidden
    -ffunction-sections -fdata-sections -fstack-protector-strong -Wall -Wextra -Wpedantic -Wshadow -Werror
    -nostdinc++ -nostdlibinc -D_LIBCPP_HAS_MUSL_LIBC -D_LIBCPP_PROVIDES_DEFAULT_RUNE_TABLE
    -include scripts/android/bionic-extras.h -I.
    -isystem /usr/lib/llvm-$llvm/include/c++/v1 -isystem $sysroot/usr/include/arm-linux-musleabihf
    -idirafter $sysroot/usr/include/p11-kit-1 -idirafter $sysroot/usr/include/PCSC
    -idirafter $sysroot/usr/include/arm-linux-gnueabihf -idirafter $sysroot/usr/include)
mapfile -t sources < <(find pkcs11 util -name '*.cpp' -not -path 'pkcs11/desktop/*' | LC_ALL=C sort)
rm -f $out/*.o
printf '%s\n' "${sources[@]}" | xargs -P "$(nproc)" -I{} sh -c \
    'out=$1; source=$2; shift 2; exec clang++-'$llvm' "$@" -c "$source" -o "$out/$(echo "$source" | tr / _).o"' \
    sh $out {} "${flags[@]}"
objects=("$out"/*.o)
[ ${#objects[@]} -eq ${#sources[@]} ] || fail "${#sources[@]} sources gave ${#objects[@]} objects"

library=$out/libquarvel.so
ld.lld-$llvm -shared -soname libquarvel.so --version-script=cmake/quarvel.map --gc-sections --exclude-libs ALL \
    -z text -z relro -z now -z nodelete -o $library "${objects[@]}"

header=$(readelf -h $library)
grep -q 'Class: *ELF32' <<<"$header" || fail "not a 32-bit ELF"
grep -q 'Machine: *ARM' <<<"$header" || fail "not for ARM"
dynamic=$(readelf -d $library)
grep -q 'SONAME.*\[libquarvel.so\]' <<<"$dynamic" || fail "wrong soname"
! grep -q TEXTREL <<<"$dynamic" || fail "text relocations"

wanted=$(grep -oE '\bC_[A-Za-z]+' cmake/quarvel.map | LC_ALL=C sort)
exported=$(llvm-nm-$llvm -D --defined-only --format=just-symbols $library | LC_ALL=C sort)
[ "$exported" = "$wanted" ] || fail "exports differ: $(diff <(echo "$wanted") <(echo "$exported") | grep '^[<>]')"

missing=$(llvm-nm-$llvm -D --undefined-only --format=just-symbols $library | LC_ALL=C sort |
    LC_ALL=C comm -12 - <(grep -v '^#' scripts/android/missing-functions.txt | LC_ALL=C sort))
[ -z "$missing" ] || fail "functions that Android $api lacks:" $missing

llvm-strip-$llvm -o $out/libquarvel-stripped.so $library
echo "Android check: ${#sources[@]} sources, $(wc -w <<<"$exported") functions exported," \
    "$(stat -c %s $out/libquarvel-stripped.so) bytes stripped, without the C and C++ runtime and libcrypto"

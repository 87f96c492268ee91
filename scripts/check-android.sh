#!/usr/bin/env bash
# Compiles and links the library for Android (32-bit and 64-bit ARM, API level 21) as far as that goes without an NDK:
# clang and lld, libc++'s headers from Debian, and musl's headers as a C library without glibc's extras. What a C or C++
# runtime would bring stays undefined. Fails when the result uses a function that Android 21 lacks, is not an ELF for
# the processor named libquarvel.so, exports anything but the C_ functions, needs text relocations, or is too large.
#   scripts/check-android.sh [armeabi-v7a|arm64-v8a]...
set -euo pipefail
. "$(dirname "$0")/usage.sh"
cd "$(dirname "$0")/.."

scripts/install-deps.sh build targets

api=21
llvm=14

fail() {
    echo "Android check: $*" >&2
    exit 1
}

# check ABI DEBIAN_ARCHITECTURE TRIPLET GNU_FOLDER MUSL_FOLDER ELF_CLASS ELF_MACHINE LARGEST_SIZE
check() {
    local abi=$1 debian=$2 triplet=$3$api gnu=$4 musl=$5 class=$6 machine=$7 largest=$8
    local sysroot=build/sysroot/musl-$debian out=build/android-check/$abi
    scripts/make-sysroot.sh "$debian" "$sysroot" musl-dev libpcsclite-dev libssl-dev zlib1g-dev libp11-kit-dev

    local flags=(--target="$triplet" -std=c++17 -Oz -flto -fPIC -fvisibility=hidden -fvisibility-inlines-hidden
        -ffunction-sections -fdata-sections -faddrsig -fstack-protector-strong -Wall -Wextra -Wpedantic -Wshadow -Werror
        -nostdinc++ -nostdlibinc -D_LIBCPP_HAS_MUSL_LIBC -D_LIBCPP_PROVIDES_DEFAULT_RUNE_TABLE
        -include scripts/android/bionic-extras.h -I.
        -isystem "/usr/lib/llvm-$llvm/include/c++/v1" -isystem "$sysroot/usr/include/$musl"
        -idirafter "$sysroot/usr/include/p11-kit-1" -idirafter "$sysroot/usr/include/PCSC"
        -idirafter "$sysroot/usr/include/$gnu" -idirafter "$sysroot/usr/include")
    mkdir -p "$out"
    rm -f "$out"/*.o
    printf '%s\n' "${sources[@]}" | xargs -P "$(nproc)" -I{} sh -c \
        'out=$1; source=$2; shift 2; exec clang++-'$llvm' "$@" -c "$source" -o "$out/$(echo "$source" | tr / _).o"' \
        sh "$out" {} "${flags[@]}"
    local objects=("$out"/*.o) library=$out/libquarvel.so
    [ ${#objects[@]} -eq ${#sources[@]} ] || fail "${#sources[@]} sources gave ${#objects[@]} objects"
    ld.lld-$llvm -shared -soname libquarvel.so --version-script=cmake/quarvel.map --gc-sections --icf=safe --exclude-libs ALL \
        -z text -z relro -z now -z nodelete -o "$library" "${objects[@]}"

    local header dynamic wanted exported missing size
    header=$(readelf -h "$library")
    grep -q "Class: *$class\$" <<<"$header" || fail "not $class"
    grep -q "Machine: *$machine\$" <<<"$header" || fail "not for $machine"
    dynamic=$(readelf -d "$library")
    grep -q 'SONAME.*\[libquarvel.so\]' <<<"$dynamic" || fail "wrong soname"
    ! grep -q TEXTREL <<<"$dynamic" || fail "text relocations"

    wanted=$(grep -oE '\bC_[A-Za-z]+' cmake/quarvel.map | LC_ALL=C sort)
    exported=$(llvm-nm-$llvm -D --defined-only --format=just-symbols "$library" | LC_ALL=C sort)
    [ "$exported" = "$wanted" ] || fail "exports differ: $(diff <(echo "$wanted") <(echo "$exported") | grep '^[<>]')"

    missing=$(llvm-nm-$llvm -D --undefined-only --format=just-symbols "$library" | LC_ALL=C sort |
        LC_ALL=C comm -12 - <(grep -v '^#' scripts/android/missing-functions.txt | LC_ALL=C sort))
    [ -z "$missing" ] || fail "functions that Android $api lacks:" $missing

    llvm-strip-$llvm -o "$out/libquarvel-stripped.so" "$library"
    size=$(stat -c %s "$out/libquarvel-stripped.so")
    [ "$size" -lt "$largest" ] || fail "$abi: $size bytes stripped, where less than $largest are wanted"
    echo "Android check of $abi: ${#sources[@]} sources, $(wc -w <<<"$exported") functions exported," \
        "$size bytes stripped, without the C and C++ runtime and libcrypto"
}

if grep -rnE '#include <(sys/timeb|execinfo|glob|wordexp|threads|regex|filesystem)(\.h)?>|thread_local' pkcs11 util; then
    fail "a header or keyword that the target does not have, or that the library does without"
fi
mapfile -t sources < <(find pkcs11 util -name '*.cpp' -not -path 'pkcs11/desktop/*' | LC_ALL=C sort)
abis=("$@")
[ $# -gt 0 ] || abis=(armeabi-v7a arm64-v8a)
for abi in "${abis[@]}"; do
    case $abi in
    armeabi-v7a)
        check $abi armhf armv7a-linux-androideabi arm-linux-gnueabihf arm-linux-musleabihf ELF32 ARM 400000
        ;;
    arm64-v8a)
        check $abi arm64 aarch64-linux-android aarch64-linux-gnu aarch64-linux-musl ELF64 AArch64 450000
        ;;
    *) fail "no ABI $abi" ;;
    esac
done
scripts/run-pages.py android

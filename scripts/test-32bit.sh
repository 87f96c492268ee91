#!/usr/bin/env bash
# Builds the library and all tests for 32-bit ARM and 32-bit x86 and runs them: ARM under qemu, x86 at native speed.
#   scripts/test-32bit.sh [armhf|i386]...
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh build test targets
architectures=("$@")
[ $# -gt 0 ] || architectures=(i386 armhf)

for architecture in "${architectures[@]}"; do
    printf '\n== Build and tests: linux-%s\n' "$architecture"
    scripts/make-sysroot.sh "$architecture"
    cmake --preset "linux-$architecture" >/dev/null
    cmake --build --preset "linux-$architecture"
    ctest --preset "linux-$architecture" --parallel "$(nproc)"
done

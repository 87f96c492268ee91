#!/usr/bin/env bash
# Builds the library and all tests for other processors and runs them: 32-bit x86 at native speed, 32-bit and 64-bit ARM
# under qemu, there with a third of the sweep's positions and without that of all allocations.
#   scripts/test-foreign.sh [i386|armhf|arm64]...
set -euo pipefail
. "$(dirname "$0")/usage.sh"
cd "$(dirname "$0")/.."

scripts/install-deps.sh build test targets
architectures=("$@")
[ $# -gt 0 ] || architectures=(i386 armhf arm64)

for architecture in "${architectures[@]}"; do
    printf '\n== Build and tests: linux-%s\n' "$architecture"
    scripts/make-sysroot.sh "$architecture"
    cmake --preset "linux-$architecture" >/dev/null
    cmake --build --preset "linux-$architecture"
    ctest --preset "linux-$architecture" --parallel "$(nproc)"
done

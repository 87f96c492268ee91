#!/usr/bin/env bash
# Builds with warnings as errors, checks formatting and clang-tidy, and runs all tests: plain, and under
# AddressSanitizer and UndefinedBehaviorSanitizer. What was built and checked before is not done again.
#   ./test.sh --threads     the tests that cross threads, under ThreadSanitizer, instead
set -euo pipefail
. "$(dirname "$0")/scripts/usage.sh"
cd "$(dirname "$0")"

case "${1:-}" in
"") presets="debug asan" ;;
--threads) presets=tsan ;;
*) usage && exit 2 ;;
esac

scripts/install-deps.sh build test

if [ -t 1 ]; then
    export GTEST_COLOR=1
fi

announce() {
    printf '\n== %s\n' "$1"
}

if [ "$presets" != tsan ]; then
    announce "Formatting, and the pages' links"
    git ls-files -z '*.h' '*.cpp' '*.c' | xargs -0 clang-format-14 --dry-run --Werror
    scripts/run-pages.py --check
fi

for preset in $presets; do
    announce "Build and tests: $preset"
    cmake --preset $preset >/dev/null
    cmake --build --preset $preset
    ctest --preset $preset --parallel "$(nproc)"
done

if [ "$presets" != tsan ]; then
    announce "clang-tidy"
    # A build that runs clang-tidy on each file, so that files that did not change since are left out.
    cmake --preset debug -B build/tidy -DCMAKE_CXX_CLANG_TIDY=clang-tidy-14 >/dev/null
    cmake --build build/tidy -- -k 0

    announce "The commands of the pages"
    scripts/run-pages.py tests
fi

announce "All tests passed"

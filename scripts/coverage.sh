#!/usr/bin/env bash
# Runs all tests and says which lines of the library they reach; fails below 97 %. Arguments go to gcovr, as in
#   scripts/coverage.sh --html-details build/coverage/index.html
set -euo pipefail
. "$(dirname "$0")/usage.sh"
cd "$(dirname "$0")/.."

scripts/install-deps.sh build test coverage
cmake --preset coverage >/dev/null
cmake --build --preset coverage
find build/coverage -name '*.gcda' -delete
ctest --preset coverage --parallel "$(nproc)"
gcovr --gcov-ignore-parse-errors --root . --filter pkcs11/ --filter util/ --sort-percentage --fail-under-line 97 "$@" build/coverage

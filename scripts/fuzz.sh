#!/usr/bin/env bash
# Lets libFuzzer look for inputs that make the library fail, starting from the corpus, with clang:
#   scripts/fuzz.sh FUZZER [SECONDS]
# as scripts/fuzz.sh CardFuzzer-piv 900; without SECONDS it goes on until it finds one. What it finds is left in build/fuzz/found/.
set -euo pipefail
. "$(dirname "$0")/usage.sh"
cd "$(dirname "$0")/.."

fuzzer=${1:-}
if [ ! -f "fuzz/corpus/$fuzzer.txt" ]; then
    usage
    echo "FUZZER is one of" fuzz/corpus/*.txt | sed 's,fuzz/corpus/\([^ ]*\)\.txt,\1,g'
    exit 2
fi
scripts/install-deps.sh build fuzz
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target "$fuzzer"

found=build/fuzz/found/$fuzzer
mkdir -p "$found/corpus"
while read -r name bytes; do
    printf "$(sed 's/../\\x&/g' <<<"$bytes")" >"$found/corpus/$name"
done <"fuzz/corpus/$fuzzer.txt"
cd "$found"
"../../fuzz/$fuzzer" -max_total_time="${2:-0}" corpus

#!/usr/bin/env bash
# Builds the libFuzzer target of the OBJ and MTL readers in build-fuzz/ with
# clang and runs it for a bounded time (seconds, default 60) from a seed corpus
# of the reader tests' kinds of file and the assimp test models.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"
cmake -S fuzz -B build-fuzz -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build-fuzz
corpus=build-fuzz/corpus
mkdir -p "$corpus"
cp fuzz/corpus/* "$corpus"/
for f in /usr/share/assimp/models/OBJ/*.obj /usr/share/assimp/models/OBJ/*.mtl; do
  # Small files only: the fuzzer mutates each seed many times.
  if [ -f "$f" ] && [ "$(stat -c %s "$f")" -lt 16384 ]; then cp "$f" "$corpus"/; fi
done
build-fuzz/obj_reader_fuzz "$corpus" -max_total_time="$seconds" -max_len=4096 -timeout=10 -rss_limit_mb=2048 \
  -print_final_stats=1

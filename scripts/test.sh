#!/usr/bin/env bash
# Builds everything (library, tools, tests, benchmarks) and runs all tests.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -- -j"$(nproc)"
# A short fuzzing run of the OBJ and MTL readers, before the tests so that
# the test summary is the last thing printed.
bash scripts/fuzz.sh "${QUOVARA_FUZZ_SECONDS:-60}" > build/fuzz.log 2>&1 || { tail -40 build/fuzz.log; exit 1; }
tail -3 build/fuzz.log
cd build
ctest --output-on-failure -j"$(nproc)"

#!/usr/bin/env bash
# Builds everything (library, tools, tests, benchmarks) and runs all tests.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -- -j"$(nproc)"
cd build
ctest --output-on-failure -j"$(nproc)"

#!/usr/bin/env bash
# The main job on the bundled sample: builds the command-line tool and the
# desktop application (to look at the result), and runs the job.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build --target quovara-cli quovara-app -- -j"$(nproc)"
out="${1:-$PWD/quovara-demo}"
./build/cli/quovara-cli demo --out "$out"

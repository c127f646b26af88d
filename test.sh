#!/usr/bin/env bash
# Installs what is missing, builds everything and runs every test (no display needed).
set -euo pipefail
cd "$(dirname "$0")"
bash tools/setup-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j2
env -u DISPLAY ctest --test-dir build -j2 --output-on-failure

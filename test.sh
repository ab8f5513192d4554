#!/usr/bin/env bash
# Installs what is missing, builds everything and runs all tests through ctest.
set -euo pipefail
cd "$(dirname "$0")"
./tools/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j2
cd build
ctest --output-on-failure -j2 --timeout 900

#!/usr/bin/env bash
# Installs what is missing, builds everything and runs all tests through ctest.
# WARPFORGE_WERROR=ON makes warnings errors (CI sets it).
set -euo pipefail
cd "$(dirname "$0")"
./tools/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release -DWARPFORGE_WERROR="${WARPFORGE_WERROR:-OFF}" >/dev/null
cmake --build build -j2
cd build
ctest --output-on-failure -j2 --timeout 900

#!/usr/bin/env bash
# Installs what is missing, builds warpforge in Release, makes the sample job and warps it.
set -euo pipefail
cd "$(dirname "$0")"
./tools/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j2 --target warpforge genjob
rm -rf sample
./build/genjob sample
cd sample
status=0
../build/warpforge job.deck || status=$?
echo
echo "warpforge exit status: $status"
echo "Outputs in $(pwd):"
ls -1 job_* job.wrpsimsignal 2>/dev/null | sed 's/^/  /'
exit $status

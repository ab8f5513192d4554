#!/usr/bin/env bash
# Fuzzes every reader: builds the harnesses of tests/fuzz with clang (libFuzzer, AddressSanitizer
# and UndefinedBehaviorSanitizer, halting on the first report), makes small seed corpora with
# genjob, and runs each harness for the given number of seconds. A find stops the script with
# the harness's report and leaves the input beside build-fuzz/.
#   tools/fuzz.sh [seconds per harness (20)] [harness ...]
set -euo pipefail
cd "$(dirname "$0")/.."
secs=${1:-20}
shift || true
harnesses=("$@")
if [ ${#harnesses[@]} -eq 0 ]; then
  harnesses=(deck solverinput case geobinary geotext dispbinary disptext stlbinary stlascii readback)
fi
out=build-fuzz
cmake -S . -B $out -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DWARPFORGE_FUZZ=ON >/dev/null
targets=()
for h in "${harnesses[@]}"; do targets+=("fuzz_$h"); done
cmake --build $out -j2 --target genjob "${targets[@]}"

# Seeds: a small generated job in both forms, and a small text STL.
seeds=$out/seeds
rm -rf $seeds
./$out/genjob $seeds/bin --tris 448 --nodes 200 >/dev/null
./$out/genjob $seeds/txt --tris 448 --nodes 200 --text --explicit >/dev/null
printf 'solid t\n' > $seeds/ascii.stl
for f in "0 0 0  1 0 0  0 1 0" "0 0 0  0 1 0  0 0 1" "0 0 0  0 0 1  1 0 0" "1 0 0  0 0 1  0 1 0"; do
  set -- $f
  printf '  facet normal 0 0 0\n    outer loop\n      vertex %s %s %s\n      vertex %s %s %s\n      vertex %s %s %s\n    endloop\n  endfacet\n' "$@" >> $seeds/ascii.stl
done
printf 'endsolid t\n' >> $seeds/ascii.stl
# The node count in front of a displacement file: two bytes, little-endian.
nodecount() { grep -m1 -o '[0-9]\+ nodes' <<<"$1" | cut -d' ' -f1; }
nnodes=$(./$out/genjob $out/count --tris 448 --nodes 200)
n=$(nodecount "$nnodes")
rm -rf $out/count
prefix() { printf "\\x$(printf %02x $(($1 % 256)))\\x$(printf %02x $(($1 / 256)))"; }

corpus=$out/corpus
for h in "${harnesses[@]}"; do
  d=$corpus/$h
  rm -rf "$d"
  mkdir -p "$d"
  case $h in
    deck) cp $seeds/bin/job.deck "$d/" ;;
    solverinput) cp $seeds/bin/job.in "$d/" ;;
    case) cp $seeds/bin/job.case "$d/bin.case"; cp $seeds/txt/job.case "$d/txt.case" ;;
    geobinary) tail -c +89 $seeds/bin/results/job_1.geo > "$d/job.geo" ;;
    geotext) cp $seeds/txt/results/job_1.geo "$d/" ;;
    dispbinary) { prefix "$n"; cat $seeds/bin/results/job00_1.dis.ens; } > "$d/job.dis" ;;
    disptext) { prefix "$n"; cat $seeds/txt/results/job00_1.dis.ens; } > "$d/job.dis" ;;
    stlbinary|readback) cp $seeds/bin/part.stl "$d/"; cp $seeds/ascii.stl "$d/" ;;
    stlascii) cp $seeds/ascii.stl "$d/" ;;
  esac
  echo "== fuzz_$h for ${secs}s"
  # The harness moves to a folder of its own: paths given to it are absolute.
  ./$out/fuzz_$h -max_total_time="$secs" -rss_limit_mb=2048 -timeout=20 -print_final_stats=1 \
    -artifact_prefix="$PWD/$out/" "$PWD/$d" > "$out/fuzz_$h.log" 2>&1 || true
  grep -E 'stat::number_of_executed_units|ERROR|SUMMARY' "$out/fuzz_$h.log" || true
  if ls $out/crash-* $out/leak-* $out/timeout-* $out/oom-* >/dev/null 2>&1; then
    echo "fuzz_$h found a fault: see $out/fuzz_$h.log and the input in $out/" >&2
    tail -40 "$out/fuzz_$h.log" >&2
    exit 1
  fi
done

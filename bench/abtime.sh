#!/bin/bash
# SPDX-License-Identifier: GPL-3.0-or-later
# A/B timing of whole runs against another commit.
#
#   bench/abtime.sh COMMIT [ROUNDS]
#
# A is COMMIT (a hash, a tag, a branch such as main), built in Release in a scratch git worktree
# under the scratch folder; B is the current checkout, built in Release in its build folder
# (uncommitted changes included). Both run the same large generated job (genjob of B: 1.1 M
# triangles, 1 M nodes), once as made (package on) and once refining (*N3DM *MINE 0.05
# *MAXE 0.12), alternately A B A B for ROUNDS rounds (default 3) after one untimed run of each,
# on ABTIME_THREADS threads. For each job it prints both median wall times, the ratio B/A, the
# median CPU time (user and system, all threads) and peak memory, and whether A and B wrote the same output files (sha256sum of the STL,
# the package members, the zip with the entries' dates set aside, the signal file and the
# console without its timing, build and catalogue lines). Where the two commits are meant to behave alike, "outputs
# identical" is the check; the script exits with 3 when they differ.
#
# Environment (defaults in brackets):
#   ABTIME_DIR      scratch folder for the worktree, its build and the jobs [<checkout>/build-ab]
#   ABTIME_BUILD    build folder of the current checkout [<checkout>/build]
#   ABTIME_THREADS  OMP_NUM_THREADS of the runs [2]
#   ABTIME_TRIS, ABTIME_NODES  size of the job [1100000, 1000000]
#   ABTIME_JOBS     CMake build parallelism [2]
# The worktree stays for the next call; remove it with git worktree remove <ABTIME_DIR>/src-<hash>.
set -euo pipefail

if [ $# -lt 1 ] || [ $# -gt 2 ]; then
  sed -n "3,24p" "$0" | sed 's/^# \{0,1\}//'
  exit 2
fi
top=$(git rev-parse --show-toplevel)
commit=$(git -C "$top" rev-parse --verify "$1^{commit}")
rounds=${2:-3}
scratch=${ABTIME_DIR:-$top/build-ab}
bbuild=${ABTIME_BUILD:-$top/build}
threads=${ABTIME_THREADS:-2}
tris=${ABTIME_TRIS:-1100000}
nodes=${ABTIME_NODES:-1000000}
jobs=${ABTIME_JOBS:-2}
short=${commit:0:10}
mkdir -p "$scratch"

build() {  # source folder, build folder
  cmake -S "$1" -B "$2" -DCMAKE_BUILD_TYPE=Release >/dev/null
  cmake --build "$2" -j"$jobs" --target warpforge genjob >/dev/null
}

echo "A: $short ($(git -C "$top" log -1 --format=%s "$commit" | cut -c1-60))"
echo "B: the checkout at $(git -C "$top" rev-parse --short HEAD)$(git -C "$top" diff --quiet HEAD || echo ' with changes')"
asrc=$scratch/src-$short
if [ ! -d "$asrc" ]; then
  git -C "$top" worktree add --detach "$asrc" "$commit" >/dev/null 2>&1
fi
echo "building A in $scratch/build-$short and B in $bbuild ..."
build "$asrc" "$scratch/build-$short"
build "$top" "$bbuild"
aexe=$scratch/build-$short/warpforge
bexe=$bbuild/warpforge

# The job, made once by B's genjob; each side and deck runs in its own folder whose inputs are
# links to it.
job=$scratch/job-$tris-$nodes
if [ ! -f "$job/part.stl" ]; then
  rm -rf "$job"
  "$bbuild/genjob" "$job" --tris "$tris" --nodes "$nodes" >/dev/null
fi
printf '*INPU\njob\n*IOFF\n-1\n' >"$scratch/default.deck"
printf '*INPU\njob\n*IOFF\n-1\n*N3DM\n*MINE\n0.05\n*MAXE\n0.12\n' >"$scratch/refine.deck"
for side in A B; do
  for deck in default refine; do
    run=$scratch/run-$side-$deck
    rm -rf "$run"
    mkdir -p "$run/tmp"
    for f in "$job"/*; do ln -s "$f" "$run/"; done
    cp "$scratch/$deck.deck" "$run/"
  done
done

# One run: side, deck; appends "wall peak_kB cpu" to the side's and deck's times.
runone() {
  local run=$scratch/run-$1-$2 exe
  [ "$1" = A ] && exe=$aexe || exe=$bexe
  rm -rf "$run"/job_*_warp* "$run"/*.wrpsimsignal
  (cd "$run" && CRVT_TSR_SIM_TMP="$run/tmp" OMP_NUM_THREADS=$threads \
    /usr/bin/time -f '%e %M %U %S' -o "$run/time.txt" "$exe" "$2.deck" >"$run/console.txt" 2>&1) ||
    echo "  $1 $2: exit status $? (see $run/console.txt)"
  awk '{print $1, $2, $3 + $4}' "$run/time.txt" >>"$scratch/times-$1-$2"
}

# Digest of what a run wrote: every output file, the zip with its entries' dates zeroed.
digest() {
  local run=$1
  (cd "$run" && find . -newer "$2.deck" -type f ! -name time.txt ! -name console.txt ! -name '*.3mf' \
      -print0 | sort -z | xargs -0 -r sha256sum)
  for z in "$run"/*.3mf; do
    [ -e "$z" ] || continue
    printf '%s  %s (dates aside)\n' "$(python3 - "$z" <<'EOF'
import hashlib, struct, sys
b = bytearray(open(sys.argv[1], 'rb').read())
e = b.rfind(b'PK\x05\x06')
n, cd = struct.unpack_from('<H', b, e + 10)[0], struct.unpack_from('<I', b, e + 16)[0]
for _ in range(n):
    b[cd + 12:cd + 16] = bytes(4)
    lo = struct.unpack_from('<I', b, cd + 42)[0]
    b[lo + 10:lo + 14] = bytes(4)
    cd += 46 + sum(struct.unpack_from('<HHH', b, cd + 28))
print(hashlib.sha256(b).hexdigest())
EOF
)" "$(basename "$z")"
  done
  printf '%s  console (timing line aside)\n' \
    "$(grep -v 'CPU wall\|Loading file\|Build ID' "$run/console.txt" | sha256sum | cut -d' ' -f1)"
}

median() { sort -n | awk '{v[NR] = $1} END {print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2}'; }

rm -f "$scratch"/times-*
for deck in default refine; do
  runone A $deck; runone B $deck  # untimed: caches and pages settle
done
rm -f "$scratch"/times-*
for r in $(seq "$rounds"); do
  for deck in default refine; do
    runone A $deck
    runone B $deck
  done
  echo "  round $r of $rounds done"
done

status=0
echo "== $rounds rounds, A B A B, $threads threads; job of $tris triangles, $nodes nodes"
for deck in default refine; do
  ta=$(cut -d' ' -f1 "$scratch/times-A-$deck" | median)
  tb=$(cut -d' ' -f1 "$scratch/times-B-$deck" | median)
  ma=$(cut -d' ' -f2 "$scratch/times-A-$deck" | median)
  mb=$(cut -d' ' -f2 "$scratch/times-B-$deck" | median)
  ca=$(cut -d' ' -f3 "$scratch/times-A-$deck" | median)
  cb=$(cut -d' ' -f3 "$scratch/times-B-$deck" | median)
  ratio=$(awk -v a="$ta" -v b="$tb" 'BEGIN {printf "%.3f", b / a}')
  if diff <(digest "$scratch/run-A-$deck" "$deck") <(digest "$scratch/run-B-$deck" "$deck") \
      >"$scratch/diff-$deck.txt"; then
    same="outputs identical"
  else
    same="OUTPUTS DIFFER (see $scratch/diff-$deck.txt)"
    status=3
  fi
  printf '%-8s wall A %6.3f s  B %6.3f s  B/A %s   CPU A %6.3f s  B %6.3f s   peak A %d MB  B %d MB\n' \
    "$deck" "$ta" "$tb" "$ratio" "$ca" "$cb" "$((${ma%.*} / 1024))" "$((${mb%.*} / 1024))"
  echo "         $same"
done
exit $status

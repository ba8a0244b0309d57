#!/usr/bin/env bash
# A series on a one-node Slurm cluster: 40 pairs of 256 x 256 px in 4 shards
# of an array job, the statistics merged by a job that waits for them, equal
# to one run on one node. Shard 1 is first run alone and cancelled after its
# third result; run again with the others, it finishes and leaves the
# results it had written as they were (same inode, same mtime).
#   cluster_test.sh KELVANE_EVAL KELVANE_SYNTH SCRIPTS_SLURM    (as root)
set -euo pipefail
eval_tool=$(realpath "$1") synth=$(realpath "$2") slurm=$(realpath "$3")
root=$(mktemp -d)
export KELVANE_CLUSTER_DIR=$root/cluster KELVANE_EVAL=$eval_tool
cleanup() { "$slurm/local-cluster" stop >/dev/null 2>&1 || true; rm -rf "$root"; }
trap cleanup EXIT
fail() {
  echo "cluster test: $*" >&2
  cat "$root"/slurm-*.out "$root"/merge.out 2>/dev/null >&2 || true
  "$slurm/local-cluster" logs >&2 || true
  exit 1
}
# Waits for jobs to leave the queue, at most until the deadline.
deadline=$((SECONDS + 240))
wait_jobs() {
  while [ -n "$(squeue -h -j "$1" 2>/dev/null)" ]; do
    [ $SECONDS -lt $deadline ] || fail "jobs $1 still queued at the time limit"
    sleep 0.2
  done
}

"$slurm/local-cluster" start >/dev/null || fail "the cluster did not start"
# shellcheck disable=SC1091
source "$KELVANE_CLUSTER_DIR/env"
cd "$root"
for i in $(seq 1 40); do
  n=$(printf %04d "$i")
  "$synth" --size 256 --seed "$i" --dx 2.3 --dy -1.1 "run${n}a.tif" "run${n}b.tif" t.nc >/dev/null
done
# Pairs slow enough (about 30 ms each) for the cancel to find shard 1 busy.
opts=(--method multigrid --deform --window 16 --step 4 --quiet)
"$eval_tool" --series run0001a.tif run0040a.tif --output-dir one --stats --threads 1 "${opts[@]}" ||
  fail "the one-node run failed"

job=$(sbatch --parsable --array=1 -o 'slurm-%A_%a.out' --export=ALL,KELVANE_SHARD_COUNT=4 \
  "$slurm/eval-array.sbatch" run0001a.tif run0040a.tif sh "${opts[@]}")
until [ "$(find sh -name 'run00[12]?a.nc' 2>/dev/null | wc -l)" -ge 3 ]; do
  [ $SECONDS -lt $deadline ] || fail "shard 1 wrote no third result"
  sleep 0.005
done
scancel "$job"
wait_jobs "$job"
[ -e sh/series_shard1of4.nc ] && echo "cluster test: shard 1 had finished before the cancel"
stat -c '%n %i %.9Y' sh/run*.nc > before.txt
echo "cluster test: $(wc -l < before.txt) results of shard 1 before the rerun"

array=$(sbatch --parsable --array=0-3 -o 'slurm-%A_%a.out' \
  "$slurm/eval-array.sbatch" run0001a.tif run0040a.tif sh "${opts[@]}")
merge=$(sbatch --parsable --dependency="afterok:$array" -o merge.out "$slurm/eval-merge.sbatch" sh)
wait_jobs "$array,$merge"
[ -e sh/series_avg.nc ] || fail "the merge job wrote no statistics"
[ "$(find sh -name 'run*a.nc' | wc -l)" -eq 40 ] || fail "not 40 results"
while read -r name inode mtime; do
  [ "$(stat -c '%i %.9Y' "$name")" = "$inode $mtime" ] || fail "$name was written again"
done < before.txt
# The numbers of a field, one a line, as ncdump prints them (9 digits: each
# float exactly). Merged and one-pass sums round apart by up to one float
# step; the decimal print of one step is at most 1.5 steps.
numbers() {
  ncdump -p 9 -v piv_data "$1" | sed -n '/^ piv_data =/,$p' | sed 1d | tr -s ' ,;}' '\n' | grep -v '^$'
}
for s in avg rms; do
  paste <(numbers "one/series_$s.nc") <(numbers "sh/series_$s.nc") | awk '
    function abs(x) { return x < 0 ? -x : x }
    function step(x) { if (x == 0) return 1e-45; e = int(log(x) / log(2)); if (2^e > x) e--; return 2^(e - 23) }
    { n++; m = abs($1) > abs($2) ? abs($1) : abs($2); if (abs($1 - $2) > 1.5 * step(m)) bad++ }
    END { exit n < 1000 || bad > 0 }' ||
    fail "series_$s.nc of the shards is more than one float step from the one-node run"
done
echo "cluster test: 40 results, statistics equal to one node's"

#!/usr/bin/env bash
# Speed of kelvane-eval on a 1024 x 1024 8-bit pair (32 px windows, step 16):
# the single pass and the multi-grid with deformation, each on 1 thread and
# on all threads, in vectors per second; then the plain reference evaluator of
# bench_reference (one thread, one batched FFT, three-point Gaussian fit) and
# the ratio of the single pass on all threads to it.
#
# Each figure is the best wall time of REPEATS runs (3 by default) of the
# whole command, so process start-up, reading the two TIFFs and writing the
# NetCDF result are inside it; the reference times the evaluation alone, in
# memory. The ratio therefore understates the evaluator a little. Figures on
# a loaded or shared machine are only indicative.
#
# usage: bench/eval_speed.sh [BUILD_DIR]   (build-bench by default)
# The build must be Release with sanitizers off, with the targets
# kelvane-eval, kelvane-synth and bench_reference built.
set -euo pipefail

build=${1:-build-bench}
repeats=${REPEATS:-3}
eval_bin=$build/tools/kelvane-eval
synth_bin=$build/tools/kelvane-synth
ref_bin=$build/bench/bench_reference

for exe in "$eval_bin" "$synth_bin" "$ref_bin"; do
    if [[ ! -x $exe ]]; then
        echo "eval_speed.sh: $exe is missing; build it first (see README.md, Benchmarks)" >&2
        exit 2
    fi
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$synth_bin" --flow uniform --dx 3.3 --dy -2.2 --size 1024 --window 32 --step 16 \
    "$work/a.tif" "$work/b.tif" "$work/truth.nc"

threads_all=$(nproc)

# Runs kelvane-eval REPEATS times with the given options; prints
# "<best seconds> <nodes>". The node count comes from the tool's own
# progress line "<file>: N nodes, ...".
time_eval() {
    local best="" nodes="" t0 t1 secs line
    for ((i = 0; i < repeats; i++)); do
        t0=$(date +%s%N)
        "$eval_bin" "$@" --window 32 --step 16 "$work/a.tif" "$work/b.tif" \
            -o "$work/out.nc" 2>"$work/stderr" >/dev/null
        t1=$(date +%s%N)
        secs=$(awk -v a="$t0" -v b="$t1" 'BEGIN { printf "%.6f", (b - a) / 1e9 }')
        if [[ -z $best ]] || awk -v s="$secs" -v b="$best" 'BEGIN { exit !(s < b) }'; then
            best=$secs
        fi
        line=$(grep -E ': [0-9]+ nodes,' "$work/stderr" | tail -n 1 || true)
        nodes=$(sed -E 's/.*: ([0-9]+) nodes,.*/\1/' <<<"$line")
    done
    if [[ -z $nodes ]]; then
        echo "eval_speed.sh: no node count from kelvane-eval $*:" >&2
        cat "$work/stderr" >&2
        exit 1
    fi
    echo "$best $nodes"
}

printf '%-44s %8s %7s %12s\n' case nodes "best s" vectors/s
declare -A rate
for method in single deform; do
    case $method in
        single) opts=(--method single) ;;
        deform) opts=(--method multigrid --deform) ;;
    esac
    for threads in 1 all; do
        # A plain assignment, so that a failed run stops the script.
        if [[ $threads == 1 ]]; then
            result=$(time_eval "${opts[@]}" --threads 1)
        else
            result=$(time_eval "${opts[@]}")
        fi
        read -r secs nodes <<<"$result"
        rate[$method-$threads]=$(awk -v n="$nodes" -v s="$secs" 'BEGIN { printf "%.0f", n / s }')
        label="${opts[*]}, $threads thread(s)"
        [[ $threads == all ]] && label="${opts[*]}, all ($threads_all) threads"
        printf '%-44s %8d %7.3f %12s\n' "$label" "$nodes" "$secs" "${rate[$method-$threads]}"
    done
done

# The reference, in memory, one thread; its JSON counter is already a rate.
json=$("$ref_bin" --benchmark_format=json 2>/dev/null)
ref_rate=$(grep -oE '"vectors/s": [0-9.eE+-]+' <<<"$json" | head -n 1 | awk '{ print $2 }')
if [[ -z $ref_rate ]]; then
    echo "eval_speed.sh: bench_reference gave no rate:" >&2
    grep -E '"error_message"' <<<"$json" >&2 || true
    exit 1
fi
printf '%-44s %8s %7s %12.0f\n' "reference (1 thread, in memory)" - - "$ref_rate"
awk -v e="${rate[single-all]}" -v r="$ref_rate" \
    'BEGIN { printf "single pass on all threads / reference: %.2f (aim: at least 8)\n", e / r }'

#!/usr/bin/env bash
# Speed of kelvane-eval as a user runs it, on a 2048 x 2048 8-bit pair
# (32 px windows, step 16: 16129 nodes):
#  - start-up: the wall time of `kelvane-eval --version`, which loads the
#    program and its libraries, parses and exits;
#  - start-up, load and save: a run with a 1024 px step (4 nodes), which
#    reads both TIFFs, evaluates next to nothing and writes the NetCDF file;
#  - the single pass and the multi-grid with deformation, on one thread and
#    on all threads, in vectors per second of the whole run, and of the
#    evaluation alone (the load-and-save run's time taken off);
#  - the plain reference evaluator of bench_reference (one thread, in memory,
#    one batched FFT, three-point Gaussian fit, on a 1024 x 1024 pair), the
#    ratio of the single pass to it, and the aims.
#
# Each time is the best wall time of REPEATS runs (5 by default) of the whole
# command. Figures on a loaded or shared machine are noisy; take the best of
# several calls of the script as well.
#
# usage: bench/eval_speed.sh [BUILD_DIR]   (build-bench by default)
#        SIZE=1024 REPEATS=9 bench/eval_speed.sh ...
# The build must be Release with sanitizers off, with the targets
# kelvane-eval, kelvane-synth and bench_reference built.
set -euo pipefail

build=${1:-build-bench}
repeats=${REPEATS:-5}
size=${SIZE:-2048}
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

"$synth_bin" --flow uniform --dx 3.3 --dy -2.2 --size "$size" --window 32 --step 16 \
    "$work/a.tif" "$work/b.tif" "$work/truth.nc"

threads_all=$(nproc)

# Runs the command REPEATS times; prints the best wall time in seconds.
# Its stderr is kept in $work/stderr (of the last run).
best_time() {
    local best="" t0 t1 secs
    for ((i = 0; i < repeats; i++)); do
        t0=$(date +%s%N)
        "$@" 2>"$work/stderr" >/dev/null
        t1=$(date +%s%N)
        secs=$(awk -v a="$t0" -v b="$t1" 'BEGIN { printf "%.6f", (b - a) / 1e9 }')
        if [[ -z $best ]] || awk -v s="$secs" -v b="$best" 'BEGIN { exit !(s < b) }'; then
            best=$secs
        fi
    done
    echo "$best"
}

# Runs kelvane-eval on the pair with the given options; prints
# "<best seconds> <nodes>". The node count comes from the tool's own
# progress line "<pair>: N nodes, ...".
time_eval() {
    local secs line nodes
    secs=$(best_time "$eval_bin" "$@" "$work/a.tif" "$work/b.tif" -o "$work/out.nc")
    line=$(grep -E ': [0-9]+ nodes,' "$work/stderr" | tail -n 1 || true)
    nodes=$(sed -E 's/.*: ([0-9]+) nodes,.*/\1/' <<<"$line")
    if [[ -z $nodes ]]; then
        echo "eval_speed.sh: no node count from kelvane-eval $*:" >&2
        cat "$work/stderr" >&2
        exit 1
    fi
    echo "$secs $nodes"
}

ms() { awk -v s="$1" 'BEGIN { printf "%.1f", s * 1000 }'; }

echo "kelvane-eval, ${size}x${size} pair, best of $repeats wall times"
printf '%-46s %6s %9s %11s %11s\n' case nodes "best ms" vectors/s "eval only"

# A plain assignment, so that a failed run stops the script.
startup=$(best_time "$eval_bin" --version)
printf '%-46s %6s %9s %11s %11s\n' "start-up (--version)" - "$(ms "$startup")" - -

result=$(time_eval --method single --window 32 --step 1024 --threads 1)
read -r io nodes <<<"$result"
printf '%-46s %6d %9s %11s %11s\n' "start-up, load and save (step 1024)" "$nodes" "$(ms "$io")" - -

declare -A rate
for method in single deform; do
    case $method in
        single) opts=(--method single) ;;
        deform) opts=(--method multigrid --deform) ;;
    esac
    for threads in 1 all; do
        if [[ $threads == 1 ]]; then
            result=$(time_eval "${opts[@]}" --window 32 --step 16 --threads 1)
            label="${opts[*]}, 1 thread"
        else
            result=$(time_eval "${opts[@]}" --window 32 --step 16)
            label="${opts[*]}, all ($threads_all) threads"
        fi
        read -r secs nodes <<<"$result"
        rate[$method-$threads]=$(awk -v n="$nodes" -v s="$secs" 'BEGIN { printf "%.0f", n / s }')
        alone=$(awk -v n="$nodes" -v s="$secs" -v io="$io" \
            'BEGIN { printf "%.0f", (s > io ? n / (s - io) : 0) }')
        printf '%-46s %6d %9s %11s %11s\n' "$label" "$nodes" "$(ms "$secs")" \
            "${rate[$method-$threads]}" "$alone"
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
printf '%-46s %6s %9s %11.0f %11s\n' "reference (1 thread, in memory, 1024 px)" - - "$ref_rate" -
awk -v e1="${rate[single-1]}" -v ea="${rate[single-all]}" -v r="$ref_rate" -v s="$startup" 'BEGIN {
    printf "single pass, 1 thread: %.0f vectors/s (aim: at least 100000), %.2f of the reference\n", e1, e1 / r
    printf "single pass, all threads / reference: %.2f (aim: at least 8)\n", ea / r
    printf "start-up: %.1f ms (aim: under 20 ms)\n", s * 1000
}'

#!/usr/bin/env bash
# Runs bench/compare.sh on the three corpus shapes that bound the scan's memory and time:
# the benchmark corpus (200,000 paths), the same tree with one size group of 20,000 files
# of exactly 65,536 bytes, and the million-path corpus (the same generator, scaled).
# Builds a missing corpus first. Prints each table, then the bytes per path of every
# corvel row and how the million-path scan's time compares with the 200,000-path one.
#
#   bench/scale.sh [ROUNDS]
#
# Environment: CORPUS, BLOCKS_CORPUS, MILLION_CORPUS name the folders (defaults under
# /tmp); TOOLS, COLD, COLD_TOOLS and PAUSE_BUILDS go to compare.sh (the million-path
# corpus runs only the walk, corvel and jdupes, as the other peers take minutes a run).
set -euo pipefail
cd "$(dirname "$0")/.."
rounds=${1:-5}
corpus=${CORPUS:-/tmp/corvel-corpus}
blocks=${BLOCKS_CORPUS:-/tmp/corvel-corpus-blocks}
million=${MILLION_CORPUS:-/tmp/corvel-corpus-million}
make -s configure >/dev/null && cmake --build build --target corvel make_corpus >/dev/null

make_if_missing() { # make_if_missing DIR ARGS...
    local dir=$1
    shift
    [[ -d $dir ]] || build/bin/make_corpus "$@" >&2
}
make_if_missing "$corpus" "$corpus" 200000 42
make_if_missing "$blocks" --same-size-group=20000 "$blocks" 200000 42
make_if_missing "$million" "$million" 1000000 42

summary=$(mktemp)
trap 'rm -f "$summary"' EXIT
default_tools="corvel corvel-min1 corvel-verify corvel-min1-verify jdupes"
SUMMARY=$summary TOOLS=${TOOLS:-$default_tools} GROUP=0 bench/compare.sh "$corpus" "$rounds"
SUMMARY=$summary TOOLS=${TOOLS:-$default_tools} GROUP=0 COLD=0 bench/compare.sh "$blocks" "$rounds"
SUMMARY=$summary TOOLS=${TOOLS:-corvel corvel-min1 jdupes} GROUP=0 COLD_TOOLS=corvel bench/compare.sh "$million" "$rounds"

echo
echo "peak memory per path (warm runs)"
awk -F'\t' '$2 == "warm" && $3 ~ /^corvel/ { printf "%-40s %-20s %8.1f MB %6.0f bytes per path\n", $1, $3, $6 / 1024, $6 * 1024 / $7 }' "$summary"
echo
echo "the million-path corpus against the 200,000-path one (warm medians)"
awk -F'\t' -v small="$corpus" -v large="$million" '
    $2 == "warm" && $1 == small { t[$3] = $4; p = $7 }
    $2 == "warm" && $1 == large { T[$3] = $4; P = $7 }
    END { for (tool in T) if (tool in t && t[tool] > 0)
              printf "%-20s %6.2f s -> %6.2f s: %.2f x the time for %.2f x the paths\n", tool, t[tool], T[tool], T[tool] / t[tool], P / p }' "$summary"

#!/usr/bin/env bash
# Times corvel against the bare walk and the duplicate finders packaged by Debian, on a
# generated corpus. Prints one table per setting; record the figures in RESULTS.md.
#
#   bench/compare.sh [CORPUS_DIR] [ROUNDS]
#
# Warm cache: one untimed run of everything, then ROUNDS paired rounds (the walk and
# every tool once per round, in the same order); medians are reported, and each
# tool's median of its per-round ratio to the walk. Cold cache (needs root): the page
# cache is dropped before every timed run. Peak memory is the median of the rounds'
# maximum resident sizes.
#
# Environment: TOOLS="corvel jdupes" limits the warm tools (the walk always runs),
# COLD_TOOLS those of the cold rounds, COLD=0 skips them, GROUP=0 skips the one-group
# timing at the end; SUMMARY=FILE appends one line per tool and setting ("corpus mode
# tool seconds x-walk rss-kb paths", tab-separated); PAUSE_BUILDS=1 stops the machine's
# compilers (cc1plus, ninja) during each round and always lets them go on afterwards.
set -euo pipefail
cd "$(dirname "$0")/.."
corpus=${1:-/tmp/corvel-corpus}
rounds=${2:-5}
build=build
corvel=$(pwd)/$build/bin/corvel

need=()
for tool in jdupes fdupes rdfind rmlint; do command -v "$tool" >/dev/null || need+=("$tool"); done
[[ -x /usr/bin/time ]] || need+=(time)
if ((${#need[@]})); then
    echo "installing ${need[*]}" >&2
    apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${need[@]}" >/dev/null
fi
make -s configure >/dev/null && cmake --build "$build" --target corvel make_corpus >/dev/null
if [[ ! -d $corpus ]]; then
    echo "building the corpus in $corpus" >&2
    "$build/bin/make_corpus" "$corpus" 200000 42 >&2
fi
paths=$(find "$corpus" | wc -l)
scratch=$(mktemp -d)
resume_builds() { [[ ${PAUSE_BUILDS:-0} == 1 ]] && { pkill -CONT -x cc1plus; pkill -CONT -x ninja; } || true; }
pause_builds() { [[ ${PAUSE_BUILDS:-0} == 1 ]] && { pkill -STOP -x cc1plus; pkill -STOP -x ninja; } || true; }
trap 'resume_builds; rm -rf "$scratch"' EXIT
settings=$scratch/settings.plist

declare -A commands=(
    [walk]="find '$corpus' -type f -printf '%s\n'"
    [corvel]="$corvel scan --quiet --json --settings '$settings' '$corpus'"
    [corvel-min1]="$corvel scan --quiet --json --min-size 1 --settings '$settings' '$corpus'"
    [corvel-verify]="$corvel scan --quiet --json --verify --settings '$settings' '$corpus'"
    [corvel-min1-verify]="$corvel scan --quiet --json --verify --min-size 1 --settings '$settings' '$corpus'"
    [jdupes]="jdupes -r -q '$corpus'"
    [fdupes]="fdupes -r -n -q '$corpus'"
    [rdfind]="rdfind -dryrun true '$corpus'"
    [rmlint]="rmlint -T df --hidden '$corpus'"
)
order=(walk corvel corvel-min1 corvel-verify corvel-min1-verify jdupes fdupes rdfind rmlint)
# TOOLS="corvel jdupes" limits the tools (the walk always runs, for the ratios).
if [[ -n ${TOOLS:-} ]]; then
    order=(walk)
    for tool in $TOOLS; do order+=("$tool"); done
fi
read -r -a cold_order <<<"walk ${COLD_TOOLS:-corvel jdupes}"

# run NAME: runs the command in the scratch folder; prints "seconds maxrss_kb".
run() {
    (cd "$scratch" && /usr/bin/time -f '%e %M' -o "$scratch/time.txt" bash -c "${commands[$1]}" >/dev/null 2>&1) || true
    cat "$scratch/time.txt" | tail -n 1
}

drop_caches() { sync && echo 3 >/proc/sys/vm/drop_caches; }

median() { sort -g | awk '{ v[NR] = $1 } END { if (NR % 2) print v[(NR + 1) / 2]; else print (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

measure() { # measure MODE (warm|cold)
    local mode=$1
    declare -A times ratios memory
    if [[ $mode == warm ]]; then
        for name in "${order[@]}"; do run "$name" >/dev/null; done
    fi
    for ((r = 0; r < rounds; r++)); do
        local walk=""
        pause_builds
        for name in "${order[@]}"; do
            [[ $mode == cold ]] && drop_caches
            read -r seconds rss < <(run "$name")
            times[$name]+="$seconds "
            memory[$name]+="$rss "
            [[ $name == walk ]] && walk=$seconds
            ratios[$name]+="$(awk -v a="$seconds" -v b="$walk" 'BEGIN { printf "%.3f", (b > 0 ? a / b : 0) }') "
        done
        resume_builds
    done
    echo
    echo "$mode cache, $paths paths, $rounds rounds (medians)"
    printf '%-12s %10s %12s %14s %16s\n' tool seconds "x walk" "peak RSS MB" "bytes per path"
    for name in "${order[@]}"; do
        local t x m
        t=$(tr ' ' '\n' <<<"${times[$name]}" | grep . | median)
        x=$(tr ' ' '\n' <<<"${ratios[$name]}" | grep . | median)
        m=$(tr ' ' '\n' <<<"${memory[$name]}" | grep . | median)
        [[ -n ${SUMMARY:-} ]] && printf '%s\t%s\t%s\t%s\t%s\t%s\t%s\n' "$corpus" "$mode" "$name" "$t" "$x" "$m" "$paths" >>"$SUMMARY"
        printf '%-12s %10.2f %12.2f %14.1f %16.0f\n' "$name" "$t" "$x" "$(awk -v k="$m" 'BEGIN { print k / 1024 }')" \
            "$(awk -v k="$m" -v p="$paths" 'BEGIN { print k * 1024 / p }')"
    done
}

measure warm
if [[ ${COLD:-1} == 1 ]]; then
    if drop_caches 2>/dev/null; then
        order=("${cold_order[@]}")
        measure cold
    else
        echo "cold cache: cannot drop the page cache here (needs root and /proc/sys/vm/drop_caches)"
    fi
fi

[[ ${GROUP:-1} == 1 ]] || exit 0
# One size group of many files that share their first 64 KiB: doubling it must at most
# double the comparison time.
group=$scratch/group
mkdir -p "$group"
head -c 65536 /dev/urandom >"$scratch/head"
make_group() { # make_group FROM TO
    for ((i = $1; i < $2; i++)); do
        { cat "$scratch/head"; printf '%08d' "$i"; head -c 1456 /dev/zero; } >"$group/f$i"
    done
}
echo
echo "one size group of files sharing their first 64 KiB (--min-size 1, warm, median of $rounds)"
printf '%-8s %10s %10s %12s\n' files walk corvel "corvel-walk"
for count in 10000 20000; do
    make_group "$(find "$group" -type f | wc -l)" "$count"
    commands[gwalk]="find '$group' -type f -printf '%s\n'"
    commands[gcorvel]="$corvel scan --quiet --json --min-size 1 --settings '$settings' '$group'"
    run gwalk >/dev/null; run gcorvel >/dev/null
    w=""; c=""
    for ((r = 0; r < rounds; r++)); do
        pause_builds
        read -r s _ < <(run gwalk); w+="$s "
        read -r s _ < <(run gcorvel); c+="$s "
        resume_builds
    done
    wm=$(tr ' ' '\n' <<<"$w" | grep . | median)
    cm=$(tr ' ' '\n' <<<"$c" | grep . | median)
    printf '%-8s %10.2f %10.2f %12.2f\n' "$count" "$wm" "$cm" "$(awk -v a="$cm" -v b="$wm" 'BEGIN { print a - b }')"
done

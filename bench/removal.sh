#!/usr/bin/env bash
# Times a removal pass over many small copies against the plain file operations it
# stands for: the pass to the Trash against `mv` of the same copies into one folder, and
# the pass's checks alone (a dry run: every copy compared byte for byte with its kept
# copy) against `cat` of the same files. Warm cache; medians of ROUNDS runs.
#
#   bench/removal.sh [COUNT] [ROUNDS]
#
# FRESH_FS=1 (root only) runs everything on a new ext4 file system in a loop device made
# for the run: creating files on a volume where many were deleted in the last minutes is
# several times slower (ext4 skips recently freed inodes), which otherwise makes a run
# depend on what ran before it.
#
# BASELINE=another corvel build (with CORVEL_RESOURCES set for it) adds a pass of that
# build on its own new set of copies in each round, for a before-and-after comparison
# within one run: a later run would meet the inodes this one freed at its end.
set -euo pipefail
cd "$(dirname "$0")/.."
count=${1:-10000}
rounds=${2:-3}
corvel=$(pwd)/build/bin/corvel
baseline=${BASELINE:-}
make -s build >/dev/null
scratch=$(mktemp -d /tmp/corvel-removal-bench.XXXXXX)
trap 'rm -rf "$scratch"' EXIT
if [[ ${FRESH_FS:-0} == 1 ]]; then
    image=$(mktemp /tmp/corvel-removal-bench-fs.XXXXXX)
    truncate -s $((count / 1000 + 4))G "$image"
    mkfs.ext4 -q -F -N $((count * 12 * (rounds + 1) + 100000)) "$image"
    mount -o loop "$image" "$scratch"
    trap 'umount "$scratch"; rm -f "$image"; rm -rf "$scratch"' EXIT
fi
export HOME=$scratch/home XDG_CONFIG_HOME=$scratch/home/.config
mkdir -p "$HOME"
settings=$scratch/settings.plist

# Every set of copies, every Trash and every destination is new and nothing is deleted
# until the end: ext4 skips inodes freed in the last minutes when it allocates new ones,
# so creating files right after a mass deletion is many times slower, which would charge
# the last run's clean-up to the information files of the pass.
sets=0
make_copies() {
    sets=$((sets + 1))
    tree=$scratch/set$sets/tree
    export XDG_DATA_HOME=$scratch/set$sets/data
    mkdir -p "$tree/keep" "$tree/copies" "$scratch/set$sets/dest" "$XDG_DATA_HOME"
    echo "only here" >"$tree/keep/only-here.txt"
    for ((i = 0; i < count; i++)); do
        printf 'file %d %0200d\n' "$i" 0 >"$tree/keep/f$i.txt"
    done
    cp -a "$tree/keep/." "$tree/copies/"
    rm "$tree/copies/only-here.txt"
}

median() { sort -g | awk '{ v[NR] = $1 } END { if (NR % 2) print v[(NR + 1) / 2]; else print (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
seconds() { /usr/bin/time -f '%e' -o "$scratch/t" "$@" >/dev/null 2>&1 || true; tail -n 1 "$scratch/t"; }

# A plan records the copies' identities, so it is made again for each new set of copies.
make_plan() {
    find "$tree/copies" -type f >"$scratch/list"
    "$corvel" scan --quiet --json --min-size 1 --settings "$settings" --select "$scratch/list" "$tree" >"$scratch/plan.json"
}

pass="" mv="" dry="" cat="" before=""
for ((r = 0; r < rounds; r++)); do
    if [[ -n $baseline ]]; then
        make_copies
        make_plan
        sync
        cat "$tree"/keep/* "$tree"/copies/* >/dev/null
        before+="$(seconds "$baseline" remove --quiet --yes --settings "$settings" "$scratch/plan.json") "
    fi
    make_copies
    make_plan
    sync
    cat "$tree"/keep/* "$tree"/copies/* >/dev/null
    dry+="$(seconds "$corvel" remove --quiet --dry-run --settings "$settings" "$scratch/plan.json") "
    cat+="$(seconds bash -c "cat '$tree'/keep/* '$tree'/copies/* >/dev/null") "
    pass+="$(seconds "$corvel" remove --quiet --yes --settings "$settings" "$scratch/plan.json") "
    test -z "$(ls -A "$tree/copies")" || echo "warning: copies left after the pass" >&2
    make_copies
    sync
    mv+="$(seconds bash -c "find '$tree/copies' -type f -exec mv -t '$scratch/set$sets/dest' {} +") "
done
printf '%-34s %8s\n' "$count copies" seconds
printf '%-34s %8.2f\n' "corvel remove (to the Trash)" "$(tr ' ' '\n' <<<"$pass" | grep . | median)"
[[ -z $baseline ]] || printf '%-34s %8.2f\n' "the baseline build's pass" "$(tr ' ' '\n' <<<"$before" | grep . | median)"
printf '%-34s %8.2f\n' "mv into one folder" "$(tr ' ' '\n' <<<"$mv" | grep . | median)"
printf '%-34s %8.2f\n' "corvel remove --dry-run (checks)" "$(tr ' ' '\n' <<<"$dry" | grep . | median)"
printf '%-34s %8.2f\n' "cat of the same files" "$(tr ' ' '\n' <<<"$cat" | grep . | median)"

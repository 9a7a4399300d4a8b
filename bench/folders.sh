#!/usr/bin/env bash
# Times scans of trees made of many folders of one size, where folders are compared with
# each other, against jdupes on the same trees (files only; it has no folder groups).
# Three shapes of COUNT folders each:
#   different  every folder one 4 KiB file "f" of its own content
#   copies     every folder one 4 KiB file "f" of the same content (one group of COUNT)
#   first-same every folder a 4 KiB file "a" alike in all and a 4 KiB file "b" of its own
# Warm cache (one run first, not counted); medians of ROUNDS runs at every size.
#
#   bench/folders.sh [COUNT] [ROUNDS]
#
# BASELINE=another corvel build adds that build's scans, taken in the same rounds.
set -euo pipefail
cd "$(dirname "$0")/.."
count=${1:-3000}
rounds=${2:-5}
corvel=$(pwd)/build/bin/corvel
baseline=${BASELINE:-}
make -s build >/dev/null
scratch=$(mktemp -d /tmp/corvel-folders-bench.XXXXXX)
trap 'rm -rf "$scratch"' EXIT
export HOME=$scratch/home XDG_DATA_HOME=$scratch/home/.local/share XDG_CONFIG_HOME=$scratch/home/.config
export CORVEL_RESOURCES=${CORVEL_RESOURCES:-$(pwd)/resources}
mkdir -p "$HOME"

python3 - "$scratch" "$count" <<'EOF'
import os, sys
top, count = sys.argv[1], int(sys.argv[2])
for shape in ("different", "copies", "first-same"):
    for i in range(count):
        folder = f"{top}/{shape}/d{i}"
        os.makedirs(folder)
        if shape == "different":
            open(f"{folder}/f", "wb").write(os.urandom(4096))
        elif shape == "copies":
            open(f"{folder}/f", "wb").write(b"z" * 4096)
        else:
            open(f"{folder}/a", "wb").write(b"q" * 4096)
            open(f"{folder}/b", "wb").write(os.urandom(4096))
EOF

median() { sort -n | awk '{ a[NR] = $1 } END { print a[int((NR + 1) / 2)] }'; }
seconds() { # command... -> elapsed seconds
    local start end
    start=$(date +%s.%N)
    "$@" >/dev/null 2>&1 || true
    end=$(date +%s.%N)
    echo "$end - $start" | bc
}

printf '| shape (%d folders) | command | seconds |\n|---|---|---|\n' "$count"
for shape in different copies first-same; do
    tree=$scratch/$shape
    declare -A runs=()
    for ((round = 0; round <= rounds; round++)); do
        for name in corvel baseline jdupes; do
            case $name in
            corvel) cmd=("$corvel" scan --quiet --json --min-size 1 --settings "$scratch/s.plist" "$tree") ;;
            baseline)
                [[ -n $baseline ]] || continue
                cmd=("$baseline" scan --quiet --json --min-size 1 --settings "$scratch/s.plist" "$tree")
                ;;
            jdupes) cmd=(jdupes -rq "$tree") ;;
            esac
            command -v "${cmd[0]}" >/dev/null || continue
            rm -f "$scratch/s.plist"
            t=$(seconds "${cmd[@]}")
            ((round == 0)) || runs[$name]+="$t "
        done
    done
    for name in corvel baseline jdupes; do
        [[ -n ${runs[$name]:-} ]] || continue
        printf '| %s | %s | %.2f |\n' "$shape" "$name" "$(tr ' ' '\n' <<<"${runs[$name]}" | grep . | median)"
    done
    unset runs
done

#!/usr/bin/env bash
# The bash completion, sourced in bash with bash-completion loaded, completes subcommands,
# every option "corvel SUB --help" lists (and no other), the fixed values, and paths with
# spaces in their names. Skipped (exit 77) when bash-completion is not installed.
# Usage: bash_completion_test.sh CORVEL COMPLETION_FILE
set -uo pipefail
corvel=$1
completion=$2
. "$(dirname "$0")/help_options.sh"

framework=/usr/share/bash-completion/bash_completion
if [[ ! -r $framework ]]; then
    echo "SKIP: bash-completion is not installed ($framework); scripts/install-deps --dev installs it"
    exit 77
fi
# bash_completion expects an interactive-like shell; it only needs these.
set +u
. "$framework"
. "$completion"

failures=0
fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}

# The candidates for the command line "$@" (the last word is the one being completed),
# one a line, sorted. Words are split the way readline does, "=" included.
candidates() {
    local line="$*"
    COMP_LINE=$line
    COMP_POINT=${#line}
    COMP_WORDS=()
    local word
    for word in "$@"; do
        if [[ $word == --*=* ]]; then
            COMP_WORDS+=("${word%%=*}" "=" "${word#*=}")
        else
            COMP_WORDS+=("$word")
        fi
    done
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMPREPLY=()
    _corvel corvel "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
    printf '%s\n' "${COMPREPLY[@]}" | grep . | sort
}

expect() { # expect "WANTED (one a line)" WORDS...
    local wanted=$1
    shift
    local got
    got=$(candidates "$@")
    [[ $got == "$(sort <<<"$wanted")" ]] || fail "'$*' completes to [$(echo $got)], not [$(echo $wanted)]"
}

expect $'scan\nremove\nstats\nremind' corvel ""
expect $'scan\nstats' corvel s
expect $'-h\n--help\n--version' corvel -
expect --format corvel scan --for
expect $'text\njson\ncsv\nfdupes' corvel scan --format ""
expect csv corvel scan --format=c
expect newest corvel scan --quiet --keep n
expect $'never\nweekly\nfortnightly\nmonthly\nquarterly\nhalf-yearly\nyearly' corvel remind --every ""
expect "" corvel scan --min-size ""

# Every option --help lists, and no other, once a subcommand is given.
for sub in $(help_subcommands); do
    listed=$(help_options "$sub")
    offered=$(candidates corvel "$sub" -)
    [[ $offered == "$listed" ]] ||
        fail "corvel $sub - offers [$(echo $offered)], --help lists [$(echo $listed)]"
    while read -r option value; do
        candidates corvel "$sub" "$option" "" | grep -qx -- "$value" ||
            fail "corvel $sub $option does not offer $value"
    done < <(help_values "$sub")
done

# Paths: folders to scan, files for the options that take one, names with spaces kept whole.
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir -p "$scratch/old photos" "$scratch/other"
touch "$scratch/plan.json" "$scratch/ordinary file"
expect "$scratch/old photos" corvel scan "$scratch/ol"
expect $'' corvel scan "$scratch/pl"
expect "$scratch/plan.json" corvel remove --dry-run "$scratch/pl"
expect "$scratch/ordinary file" corvel scan --export "$scratch/ord"
expect $'' corvel scan --always-select "$scratch/ord"
expect "$scratch/other" corvel scan --never-select "$scratch/ot"

if ((failures > 0)); then
    echo "$failures completion(s) wrong"
    exit 1
fi
echo "bash completion: all cases complete as expected"

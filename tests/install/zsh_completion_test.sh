#!/usr/bin/env bash
# The zsh completion parses, lists the subcommands "corvel --help" lists, and hands zsh's
# _arguments, for each subcommand, every option "corvel SUB --help" lists (and no other)
# with its fixed values. The specs are captured by running the completion's functions with
# _arguments replaced by a recorder. Skipped (exit 77) when zsh is not installed.
# Usage: zsh_completion_test.sh CORVEL COMPLETION_FILE
set -uo pipefail
corvel=$1
completion=$2
. "$(dirname "$0")/help_options.sh"

if ! command -v zsh >/dev/null; then
    echo "SKIP: zsh is not installed; scripts/install-deps --dev installs it"
    exit 77
fi
if ! zsh -n "$completion"; then
    echo "FAIL: $completion does not parse"
    exit 1
fi

failures=0
fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}

# The specs the completion of subcommand $1 gives _arguments, one a line.
specs() {
    zsh -f -c '
        _arguments() { print -rl -- "$@" }
        _describe() { : }
        source "$1" >/dev/null 2>&1
        _corvel_$2' zsh "$completion" "$1"
}

# The option names in the specs: "(exclusions)*--name=[text]:message:action" gives --name.
spec_options() {
    sed -E -e '/^-[sSC]$/d' -e 's/^\([^)]*\)//' -e 's/^\*//' -e '/^:/d' -e 's/[=:[].*//' | grep . | sort -u
}

for sub in $(help_subcommands); do
    given=$(specs "$sub")
    if [[ -z $given ]]; then
        fail "the completion has no _corvel_$sub"
        continue
    fi
    listed=$(help_options "$sub")
    offered=$(spec_options <<<"$given")
    [[ $offered == "$listed" ]] ||
        fail "corvel $sub: the completion offers [$(echo $offered)], --help lists [$(echo $listed)]"
    while read -r option value; do
        grep -E "^(\([^)]*\))?\*?$option[=[]" <<<"$given" | grep -qE "\((.* )?$value( .*)?\)\$" ||
            fail "corvel $sub $option: the completion does not offer $value"
    done < <(help_values "$sub")
    # Paths: the folders to scan and the files options take go to zsh's _files.
    case $sub in
    scan) grep -qx '\*:folder to scan:_files -/' <<<"$given" || fail "corvel scan does not complete folders" ;;
    esac
done

for sub in $(help_subcommands); do
    grep -q "'$sub:" "$completion" || fail "the completion does not describe the subcommand $sub"
done

if ((failures > 0)); then
    echo "$failures difference(s) between the zsh completion and --help"
    exit 1
fi
echo "zsh completion matches --help"

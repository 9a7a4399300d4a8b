#!/usr/bin/env bash
# The man pages say what --help says: every option "corvel SUB --help" lists is documented
# in that subcommand's page source, every option a page documents (its "*--option*" entry
# lines) is known to --help, every fixed value is named, and every subcommand has a page.
# Usage: man_pages_test.sh CORVEL MAN_SOURCE_DIR
set -euo pipefail
corvel=$1
pages=$2
. "$(dirname "$0")/help_options.sh"

failures=0
fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}

subcommands=$(help_subcommands)
[[ -n $subcommands ]] || fail "corvel --help lists no subcommand"

for sub in "" $subcommands; do
    page=$pages/corvel${sub:+-$sub}.1.scd
    name="corvel${sub:+ $sub}"
    if [[ ! -f $page ]]; then
        fail "$name has no man page ($page)"
        continue
    fi
    listed=$(help_options "$sub")
    [[ $listed == *--help* ]] || fail "$name --help lists no option"
    documented=$(grep -E '^\*-' "$page" | grep -oE '\*--?[A-Za-z0-9][A-Za-z0-9-]*\*' | tr -d '*' | sort -u)
    while read -r option; do
        fail "$name: $option is in --help but not in $(basename "$page")"
    done < <(comm -23 <(echo "$listed") <(echo "$documented") | grep .)
    while read -r option; do
        fail "$name: $(basename "$page") documents $option, which --help does not know"
    done < <(comm -13 <(echo "$listed") <(echo "$documented") | grep .)
    while read -r option value; do
        grep -qE "(^|[^A-Za-z0-9-])$value([^A-Za-z0-9-]|$)" "$page" ||
            fail "$name: $(basename "$page") does not name $value, a value of $option"
    done < <(help_values "$sub")
done

for sub in $subcommands; do
    grep -qx "\*$sub\*" "$pages/corvel.1.scd" || fail "corvel.1.scd does not list the subcommand $sub"
    grep -q "\*corvel-$sub\*(1)" "$pages/corvel.1.scd" || fail "corvel.1.scd does not refer to corvel-$sub(1)"
done
for page in "$pages"/corvel-*.1.scd; do
    sub=${page##*/corvel-}
    sub=${sub%.1.scd}
    grep -qx "$sub" <<<"$subcommands" || fail "$(basename "$page") documents $sub, which corvel --help does not list"
done

if ((failures > 0)); then
    echo "$failures difference(s) between the man pages and --help"
    exit 1
fi
echo "man pages match --help:" $subcommands

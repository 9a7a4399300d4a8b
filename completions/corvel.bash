# bash completion for corvel: subcommands, options, the fixed values of --format, --keep
# and --every, folders for the paths to scan and files for the options that take one.
# Uses bash-completion's helpers when they are loaded, plain compgen otherwise.

_corvel_paths() { # $1: -d for folders only, "" for any file; $2: the word being completed
    compopt -o filenames 2>/dev/null
    if declare -F _filedir >/dev/null; then
        _filedir $1
    else
        local IFS=$'\n'
        COMPREPLY=($(compgen ${1:--f} -- "$2"))
    fi
}

_corvel() {
    local cur prev words cword split=false
    if declare -F _init_completion >/dev/null; then
        _init_completion -s || return
    else
        words=("${COMP_WORDS[@]}")
        cword=$COMP_CWORD
        cur=${COMP_WORDS[COMP_CWORD]}
        prev=${COMP_WORDS[COMP_CWORD - 1]}
        # "--format=cs" arrives as "--format" "=" "cs".
        if [[ $cur == = ]]; then
            cur="" prev=${COMP_WORDS[COMP_CWORD - 1]}
        elif [[ $prev == = && $cword -ge 2 ]]; then
            prev=${COMP_WORDS[COMP_CWORD - 2]}
        fi
    fi

    local sub="" i
    for ((i = 1; i < cword; i++)); do
        case ${words[i]} in
        scan | remove | stats | remind)
            sub=${words[i]}
            break
            ;;
        esac
    done

    case $prev in
    --format)
        COMPREPLY=($(compgen -W "text json csv fdupes" -- "$cur"))
        return
        ;;
    --keep)
        COMPREPLY=($(compgen -W "oldest newest" -- "$cur"))
        return
        ;;
    --every)
        COMPREPLY=($(compgen -W "never weekly fortnightly monthly quarterly half-yearly yearly" -- "$cur"))
        return
        ;;
    --min-size | --max-size | --exclude)
        # A size or a glob: nothing to offer.
        COMPREPLY=()
        return
        ;;
    --always-select | --never-select)
        _corvel_paths -d "$cur"
        return
        ;;
    --exclude-from | --export | --select | --settings)
        _corvel_paths "" "$cur"
        return
        ;;
    esac
    [[ $split == true ]] && return

    local options
    case $sub in
    "")
        if [[ $cur == -* ]]; then
            COMPREPLY=($(compgen -W "-h --help --version" -- "$cur"))
        else
            COMPREPLY=($(compgen -W "scan remove stats remind" -- "$cur"))
        fi
        return
        ;;
    scan)
        options="-h --help --json --format --min-size --max-size --autoselect --keep --exclude
            --exclude-from --always-select --never-select --show-unremovable --export -0 --null
            --select --allow-all-copies --settings --quiet --verbose --verify --remove --trash
            --delete --remove-empty-folders --keep-empty-folders -n --dry-run -y --yes"
        ;;
    remove)
        options="-h --help --allow-all-copies --json --settings --quiet --verbose --trash --delete
            --remove-empty-folders --keep-empty-folders -n --dry-run -y --yes"
        ;;
    stats)
        options="-h --help --json --settings"
        ;;
    remind)
        options="-h --help --every --status --json --settings"
        ;;
    esac

    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "$options" -- "$cur"))
        [[ ${COMPREPLY-} == *= ]] && compopt -o nospace
    elif [[ $sub == scan ]]; then
        _corvel_paths -d "$cur"
    elif [[ $sub == remove ]]; then
        _corvel_paths "" "$cur"
    fi
}
complete -F _corvel corvel

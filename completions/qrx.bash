# bash completion for qrx, unqrx and qrxcat

# Prints the command that the words before the cursor select.
_qrx_command()
{
    local word
    case ${COMP_WORDS[0]##*/} in
    *unqrx* | *qrxcat*) echo decompress && return ;;
    esac
    case ${COMP_WORDS[1]-} in
    test | list | info | verify | cat | recover | split | join | bench)
        ((COMP_CWORD < 2)) || { echo "${COMP_WORDS[1]}" && return; } ;;
    esac
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case $word in
        --decompress | --test | --list) echo decompress && return ;;
        --*) ;;
        -*[dtl]*) echo decompress && return ;;
        esac
    done
    echo compress
}

# _qrx_options COMMAND: prints the options of a command.
_qrx_options()
{
    local resources='--threads -T --memory-limit' output='--output -o --force -f --no-sync'
    local outputs="$output --directory -C"
    case $1 in
    compress | decompress)
        echo "-"{1..9} --level --compress --decompress -d --test -t --list -l --stdout -c "$outputs" --keep -k --rm \
            --recursive -r --block-size -b --like --no-seal --verify "$resources" --version -V ;;
    test) echo --recursive -r "$resources" ;;
    list) echo --recursive -r ;;
    info) echo --recursive -r --test "$resources" ;;
    verify) echo --recursive -r --against "$resources" ;;
    cat) echo --range "$resources" ;;
    recover) echo "$outputs $resources" ;;
    split) echo "$outputs $resources" --pieces -n --blocks --no-seal ;;
    join) echo "$output $resources" --verify ;;
    bench) echo --force -f --cells --plot --seconds --block-size -b "$resources" ;;
    esac
    [[ $1 == cat ]] || echo --json
    echo --quiet -q --verbose -v --help -h
}

_qrx()
{
    local cur=${COMP_WORDS[COMP_CWORD]} last=${COMP_WORDS[COMP_CWORD-1]} command
    command=$(_qrx_command)
    case $last in
    --directory | -C) _filedir -d && return ;;
    --like) _filedir qrx && return ;;
    --output | -o | --against | --plot) _filedir && return ;;
    --level | --threads | -T | --memory-limit | --block-size | -b | --range | --pieces | -n | --blocks | --cells | --seconds)
        return ;;
    esac
    if [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(_qrx_options "$command")" -- "$cur")
        return
    fi
    case $command in
    compress | bench) _filedir ;;
    *) _filedir qrx ;;
    esac
    if [[ $command == compress && $COMP_CWORD == 1 && $cur ]]; then
        mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -W \
            'test list info verify cat recover split join bench' -- "$cur")
    fi
}
complete -F _qrx qrx unqrx qrxcat

# bash completion for quarnex and unquarnex
_quarnex()
{
    local cur=${COMP_WORDS[COMP_CWORD]} options='-p -r -v' restoring=''
    if [[ ${1##*/} == *unquarnex* || ${COMP_WORDS[1]} == -d && $COMP_CWORD -gt 1 ]]; then
        restoring=1
    else
        options="$(echo -{1..5}{0..9}) -b -h $options"
        ((COMP_CWORD > 1)) || options+=' -d'
    fi
    if [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur")
        # The value follows without a space.
        [[ ${COMPREPLY[*]} != -[bp] ]] || compopt -o nospace
    elif [[ $restoring ]]; then
        _filedir qrx
    fi # else any file or directory
}
complete -o default -F _quarnex quarnex unquarnex

# bash completion for changerctl(1)

# _changerctl_column COMMAND COLUMN [CHANGER]: prints a column of a command's table; nothing without a
# server.
_changerctl_column() {
    timeout 0.4 changerctl "$1" --no-header --columns="$2" "${@:3}" 2>/dev/null | tr -d ' '
}

# Prints the changer that the command line names, if there is one: any of its words may be a slot.
_changerctl_changer() {
    local changers word guid
    changers=" $(_changerctl_column list changer | tr '\n' ' ')"
    for word in "${COMP_WORDS[@]:2:COMP_CWORD-2}"; do
        guid=${word#0[xX]}
        guid=0000000000000000${guid^^}
        if [[ $changers == *" ${guid: -16} "* ]]; then
            printf '%s\n' "$word"
            return
        fi
    done
}

_changerctl_options() {
    local common='--help --verbose --color --timeout'
    case $1 in
    list | show) echo "$common --json --no-header --columns" ;;
    watch) echo "$common --json" ;;
    identify) echo "$common --new --withdraw --wait" ;;
    build | abort) echo "$common --withdraw --wait" ;;
    mount) echo "$common --drive" ;;
    eject) echo "$common --force" ;;
    *) echo "$common --version" ;;
    esac
}

_changerctl_arguments() {
    local changer
    case $1 in
    show | watch | build | abort) _changerctl_column list changer ;;
    identify | mount | eject)
        changer=$(_changerctl_changer)
        if [[ -n $changer ]]; then
            _changerctl_column show slot "$changer"
        else
            [[ $COMP_CWORD -gt 2 ]] || _changerctl_column list changer
            _changerctl_column show slot
        fi
        ;;
    esac
}

_changerctl() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local command=${COMP_WORDS[1]} words
    case $previous in
    --color) words='auto always never' ;;
    --timeout | --drive | --columns) return ;;
    *)
        if [[ $COMP_CWORD -eq 1 ]]; then
            words="list show watch identify build abort mount eject $(_changerctl_options '')"
        elif [[ $current == -* ]]; then
            words=$(_changerctl_options "$command")
        else
            words=$(_changerctl_arguments "$command")
        fi
        ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -F _changerctl changerctl

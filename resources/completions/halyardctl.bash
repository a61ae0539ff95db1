# bash completion for halyardctl
_halyardctl() {
    local cur prev words cword
    _init_completion || return

    local commands="schedule status volumes watch notify serve-app dump fs help"
    if [[ $cword -eq 1 ]]; then
        COMPREPLY=($(compgen -W "$commands --version --help" -- "$cur"))
        return
    fi

    case $prev in
        --file|--document)
            _filedir
            return ;;
        --type)
            COMPREPLY=($(compgen -W "3 4 5 6 7" -- "$cur"))
            return ;;
        --state)
            COMPREPLY=($(compgen -W "true false" -- "$cur"))
            return ;;
    esac

    case ${words[1]} in
        schedule)
            if [[ $cword -eq 2 ]]; then
                COMPREPLY=($(compgen -W "list show add edit remove enable disable next" -- "$cur"))
            else
                COMPREPLY=($(compgen -W "--file --json --count --description --document --type
                    --start-date --active --inactive --months --days-of-month --days-of-week
                    --hours --minutes" -- "$cur"))
            fi ;;
        volumes)
            if [[ $cword -eq 2 ]]; then
                COMPREPLY=($(compgen -W "check --json" -- "$cur"))
            else
                COMPREPLY=($(compgen -W "--file" -- "$cur"))
            fi ;;
        fs)
            if [[ $cword -eq 2 ]]; then
                COMPREPLY=($(compgen -W "copy move remove" -- "$cur"))
            else
                _filedir
            fi ;;
        notify)
            COMPREPLY=($(compgen -W "VTHalyardBackgrounderShouldQuit
                com.vantrel.halyard.scheduler_state_changed
                com.vantrel.halyard.status_menu_state_changed
                com.vantrel.halyard.WakeToSynchChange --state" -- "$cur")) ;;
        watch)
            COMPREPLY=($(compgen -W "--count" -- "$cur")) ;;
        dump)
            _filedir ;;
        help)
            COMPREPLY=($(compgen -W "$commands" -- "$cur")) ;;
    esac
} &&
    complete -F _halyardctl halyardctl

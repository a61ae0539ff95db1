# bash completion for halyardctl
_halyardctl() {
    local cur prev words cword
    _init_completion || return

    local commands="schedule status volumes watch notify serve-app dump fs why simulate config help"
    if [[ $cword -eq 1 ]]; then
        COMPREPLY=($(compgen -W "$commands --version --help" -- "$cur"))
        return
    fi

    case $prev in
        --file|--document|--schedule|--schedule-json|--events)
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
                COMPREPLY=($(compgen -W "list show add edit remove enable disable next import export" -- "$cur"))
            else
                COMPREPLY=($(compgen -W "--file --json --count --description --document --type
                    --start-date --active --inactive --months --days-of-month --days-of-week
                    --hours --minutes" -- "$cur"))
            fi ;;
        why)
            COMPREPLY=($(compgen -W "--at --file" -- "$cur")) ;;
        simulate)
            COMPREPLY=($(compgen -W "--from --to --tz --schedule --schedule-json --events --beat-fraction
                --check-cost --all-checks --exactly-once --catch-up" -- "$cur")) ;;
        config)
            if [[ $cword -eq 2 ]]; then
                COMPREPLY=($(compgen -W "exactly-once catch-up" -- "$cur"))
            else
                COMPREPLY=($(compgen -W "on off" -- "$cur"))
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

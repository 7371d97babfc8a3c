# Completion of tlmctl for bash.

# The handles of the server's jobs, with the options that name the server. Says nothing, and is not waited for, when no
# server answers.
_tlmctl_handles() {
    timeout 1 tlmctl "$@" list 2>/dev/null | sed -n 's/^\([0-9][0-9]*\) .*/\1/p'
}

_tlmctl() {
    local cur prev words cword split
    _init_completion -s || return

    local server='--host --port --client-host --release --help'
    local commands='ping submit list show watch output results cancel'
    local submit='--command --deck --dir --send --file --only-missing --stem --input --name --after --queue
        --complete-on-failure --priority --note --task-key --watch'

    # What stands in front of the cursor: the sub-command, the options for the server, how many other words.
    local command='' reach=() given=0 i
    for ((i = 1; i < cword; i++)); do
        case ${words[i]} in
            --) return ;;
            --host=* | --port=* | --client-host=* | --release=*) reach+=("${words[i]}") ;;
            --host | --port | --client-host | --release) reach+=("${words[i]}" "${words[++i]}") ;;
            --command | --deck | --dir | --file | --stem | --input | --name | --after | --priority | --note | --task-key)
                ((i++))
                ;;
            -*) ;;
            *) if [[ -z $command ]]; then command=${words[i]}; else ((++given)); fi ;;
        esac
    done

    case $prev in
        --host) _known_hosts_real -- "$cur"; return ;;
        --deck | --file | --input) _filedir; return ;;
        --dir) _filedir -d; return ;;
        --priority) COMPREPLY=($(compgen -W 'idle normal high realtime' -- "$cur")); return ;;
        --after) COMPREPLY=($(compgen -W "$(_tlmctl_handles "${reach[@]}")" -- "$cur")); return ;;
        --port | --client-host | --release | --command | --stem | --name | --note | --task-key) return ;;
    esac
    $split && return

    if [[ $cur == -* ]]; then
        case $command in
            submit) COMPREPLY=($(compgen -W "$server $submit" -- "$cur")) ;;
            output) COMPREPLY=($(compgen -W "$server --follow" -- "$cur")) ;;
            *) COMPREPLY=($(compgen -W "$server" -- "$cur")) ;;
        esac
        return
    fi
    case $command in
        '') COMPREPLY=($(compgen -W "$commands" -- "$cur")) ;;
        show | watch | output | results)
            ((given == 0)) && COMPREPLY=($(compgen -W "$(_tlmctl_handles "${reach[@]}")" -- "$cur"))
            ;;
        cancel) COMPREPLY=($(compgen -W "$(_tlmctl_handles "${reach[@]}")" -- "$cur")) ;;
        submit) ((given > 0)) && _filedir ;;  # arguments of the program, which lies on the server itself
    esac
}
complete -F _tlmctl tlmctl

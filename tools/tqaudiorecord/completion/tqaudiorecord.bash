# bash completion for tqaudiorecord

_tqaudiorecord() {
    local current previous words index word
    current=${COMP_WORDS[COMP_CWORD]}
    previous=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()

    # Behind the command everything is the command's own.
    for ((index = 1; index < COMP_CWORD; ++index)); do
        word=${COMP_WORDS[index]}
        case $word in
            -o | --output | --format | --tracks | --events | --picture | --max-file-time | --replay | \
                -d | --duration | --duck-on | --compress-threshold | --attack | \
                --release | --ring)
                ((++index))
                ;;
            guard)
                if ((index == COMP_CWORD - 1)); then
                    mapfile -t COMPREPLY < <(compgen -W "status arm disarm" -- "$current")
                else
                    mapfile -t COMPREPLY < <(compgen -c -- "$current")
                fi
                return
                ;;
            --)
                ((++index))
                if ((index < COMP_CWORD)); then
                    mapfile -t COMPREPLY < <(compgen -f -- "$current")
                else
                    mapfile -t COMPREPLY < <(compgen -c -- "$current")
                fi
                return
                ;;
            -*) ;;
            *)
                mapfile -t COMPREPLY < <(compgen -f -- "$current")
                return
                ;;
        esac
    done

    case $previous in
        --format)
            mapfile -t COMPREPLY < <(compgen -W "wav w64 rf64 flac ogg opus raw" -- "$current")
            return
            ;;
        --tracks)
            mapfile -t COMPREPLY < <(compgen -d -- "$current")
            return
            ;;
        --duck-on)
            mapfile -t COMPREPLY < <(compgen -W microphone -- "$current"; compgen -f -- "$current")
            return
            ;;
        -o | --output | --events | --picture)
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            return
            ;;
        -d | --duration | --max-file-time | --replay | --compress-threshold | \
            --attack | --release | --ring)
            return
            ;;
    esac

    if [[ $current == -* ]]; then
        words="-o --output --format --list-formats --tracks --events --picture --max-file-time
            --replay -d --duration --host-goes-on -q --quiet -v --verbose -h --help --version --duck
            --duck-on --compress --compress-threshold --attack --release --no-arm
            --ring "
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    else
        mapfile -t COMPREPLY < <(compgen -W guard -- "$current"; compgen -c -- "$current")
    fi
} && complete -o filenames -F _tqaudiorecord tqaudiorecord

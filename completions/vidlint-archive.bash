# Copyright (C) 2026 The vidlint authors.
# All rights reserved.
#
# Completion of vidlint-archive's arguments for bash. An empty answer leaves the word to bash, which completes files and
# directories.

_vidlint_archive()
{
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} options values='' i
    local causes="cut-short other-format empty damaged unsupported unreadable resources"
    COMPREPLY=()

    if ((COMP_CWORD == 1)); then
        mapfile -t COMPREPLY < <(compgen -W "check list report why explain help --help --version" -- "$word")
        return
    fi
    # bash takes "--option=value" for three words.
    if [[ $word == "=" ]]; then
        word=
    elif [[ $before == "=" ]]; then
        before=${COMP_WORDS[COMP_CWORD - 2]}
    fi

    options="-h --help"
    case ${COMP_WORDS[1]} in
    check)
        values="text jsonl"
        options+=" -j --jobs --io --memory --state --label --include --exclude --files0-from --one-file-system
            --no-default-excludes --min-age --shard --format --new --fail-on --set --duration-margin
            --warnings-as-errors --recheck --recheck-older --max-time --progress --color -q --quiet"
        ;;
    list) options+=" --cause --new -0 --null" ;;
    report)
        values="text jsonl csv html"
        options+=" --format"
        ;;
    esac

    # After "--" everything is a path.
    for ((i = 2; i < COMP_CWORD; ++i)); do
        [[ ${COMP_WORDS[i]} == -- ]] && return
    done
    case $before in
    --state | --files0-from) return ;;
    --format) mapfile -t COMPREPLY < <(compgen -W "$values" -- "$word") ;;
    --progress | --color) mapfile -t COMPREPLY < <(compgen -W "auto always never" -- "$word") ;;
    --fail-on | --cause)
        # The last of a list, with those before it in front.
        values=${word##*,}
        mapfile -t COMPREPLY < <(compgen -P "${word%"$values"}" -W "error warning dropped-track none $causes" -- "$values")
        compopt -o nospace 2>/dev/null
        ;;
    -j | --jobs | --io | --memory | --label | --include | --exclude | --min-age | --shard | --set | --duration-margin | \
        --recheck-older | --max-time) ;;
    *)
        if [[ $word == -* ]]; then
            mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
        fi
        return
        ;;
    esac
    compopt +o default +o bashdefault 2>/dev/null # no file is meant
}

complete -o bashdefault -o default -F _vidlint_archive vidlint-archive

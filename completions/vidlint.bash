# Copyright (C) 2026 The vidlint authors.
# All rights reserved.
#
# Completion of vidlint's arguments for bash. An empty answer leaves the word to bash, which completes files and
# directories.

_vidlint()
{
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} i
    COMPREPLY=()

    # bash takes "--option=value" for three words.
    if [[ $word == "=" ]]; then
        word=
    elif [[ $before == "=" ]]; then
        before=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    case $before in
    -d | --duration_margin)
        compopt +o default +o bashdefault 2>/dev/null # a number: nothing to offer
        return
        ;;
    -f | --file)
        return
        ;;
    esac

    # After "--" everything is a file.
    for ((i = 1; i < COMP_CWORD; ++i)); do
        [[ ${COMP_WORDS[i]} == -- ]] && return
    done
    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "
            -h --help -u --usage -V --version -v --verbose -n --nobanner -q --quiet -w --warnings
            -W --warnings_as_errors -f --file -d --duration_margin -m --fixmeta -s --fixvideostall" -- "$word")
    fi
}

complete -o bashdefault -o default -F _vidlint vidlint

# SPDX-License-Identifier: Apache-2.0
# bash completion of tarnutil: the options of its subcommands, and the words of a cipher string.

# Completes $1, a cipher string up to the cursor, word by word. Readline replaces only what follows
# its last break character, so what stands before that is taken off each reply.
_tarnutil_cipher_string() {
    local text=$1 term front word untouched=
    case $text in
        [\'\"]*) text=${text:1} ;; # in quotes, readline sees the whole string
        *) untouched=${text%"${text##*["$COMP_WORDBREAKS"]}"} ;;
    esac
    term=${text##*[ ,:;+]}
    case $term in [-+!]*) term=${term:1} ;; esac
    front=${text%"$term"}
    COMPREPLY=()
    while read -r word; do
        case ${word,,} in "${term,,}"*) word=$front$word && COMPREPLY+=("${word#"$untouched"}") ;; esac
    done < <("${COMP_WORDS[0]}" ciphers --words 2>/dev/null)
    compopt -o nospace 2>/dev/null
}

# The long options that the subcommand's help names.
_tarnutil_options() {
    local options
    options=$("${COMP_WORDS[0]}" "$@" --help 2>/dev/null | grep -oE -- '--[a-z-]+' | sort -u)
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "${COMP_WORDS[COMP_CWORD]}")
}

_tarnutil_subcommands() {
    local names
    names=$("${COMP_WORDS[0]}" --help 2>/dev/null | sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p')
    mapfile -t COMPREPLY < <(compgen -W "$names" -- "${COMP_WORDS[COMP_CWORD]}")
}

_tarnutil() {
    local line=${COMP_LINE:0:COMP_POINT} last
    last=${line##*[ 	]}
    case $line in
        *\'*) last=\'${line##*\'} ;;
        *\"*) last=\"${line##*\"} ;;
    esac
    if [ "$COMP_CWORD" -eq 1 ]; then
        _tarnutil_subcommands
    elif [[ ${COMP_WORDS[COMP_CWORD]} == --* ]]; then
        _tarnutil_options "${COMP_WORDS[1]}"
    elif [ "${COMP_WORDS[1]}" = ciphers ]; then
        _tarnutil_cipher_string "$last"
    fi
}

complete -o default -F _tarnutil tarnutil

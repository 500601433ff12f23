# SPDX-License-Identifier: Apache-2.0
# bash completion of tarnutil: its subcommands, theirs, their options, and the words of a cipher string.

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

# The help of the subcommand that the arguments lead to.
_tarnutil_help() {
    "${COMP_WORDS[0]}" "$@" --help 2>/dev/null
}

# The names of the subcommands that the help of one lists.
_tarnutil_names() {
    _tarnutil_help "$@" | sed -n '/^Subcommands:/,/^$/s/^  \([a-z0-9-]*\) .*/\1/p'
}

# The long options that it lists.
_tarnutil_options() {
    _tarnutil_help "$@" | sed -nE 's/^ +(-[a-z],)?(--[a-z0-9-]+).*/\2/p'
}

# Sets `below` to the subcommands that the words before the cursor lead through, and `names` to those
# that may follow.
_tarnutil_follow() {
    local word
    below=()
    names=$(_tarnutil_names)
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        [ -n "$names" ] || break
        case $'\n'$names$'\n' in
            *$'\n'"$word"$'\n'*) below+=("$word") && names=$(_tarnutil_names "${below[@]}") ;;
        esac
    done
}

# Replies with those of the words in $1 that the word at the cursor begins.
_tarnutil_reply() {
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "${COMP_WORDS[COMP_CWORD]}")
}

_tarnutil() {
    local line=${COMP_LINE:0:COMP_POINT} last names
    local -a below
    last=${line##*[ 	]}
    case $line in
        *\'*) last=\'${line##*\'} ;;
        *\"*) last=\"${line##*\"} ;;
    esac
    _tarnutil_follow
    if [[ ${COMP_WORDS[COMP_CWORD]} == --* ]]; then
        _tarnutil_reply "$(_tarnutil_options "${below[@]}")"
    elif [ -n "$names" ]; then
        _tarnutil_reply "$names"
    elif [ "${below[0]-}" = ciphers ]; then
        _tarnutil_cipher_string "$last"
    fi
}

complete -o default -F _tarnutil tarnutil

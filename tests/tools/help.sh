#!/bin/sh
# help.sh PROGRAM MAN_PAGE [completion]: the help of each command, the page, and what shells complete
# tell the same.
set -eu
program=$1
page=$2
completes=${3:-}
# shellcheck source=tests/tools/expect.sh
. "$(dirname "$0")/expect.sh"

# in_page HEADING: the options that the page tells there.
in_page() {
    awk -v heading="$1" '/^#/ { here = $0 == heading } here && /^\*-/' "$page" |
        grep -o -e '--[a-z-]*' | sort
}

# same TEXT TEXT
same() {
    [ "$1" = "$2" ] || {
        printf '%s: "%s" is not "%s"\n' "$heading" "$1" "$2"
        exit 1
    }
}

# look WORDS: at a command and at those below it.
look() {
    expect 0 "$program" "$@" --help
    cp output help
    options=$(sed -n '/^Options for all/,$d; s/^  \(-[a-z],\)\{0,1\}\(--[a-z-]*\).*/\2/p' help |
        grep -vx -e "${1:+--help}" | sort)
    below=$(sed -n '/^Subcommands:$/,/^$/s/^  \([a-z]*\) .*/\1/p' help)
    heading="${1:+## $*}"
    if [ -z "$below" ] || [ -z "$heading" ]; then
        echo "$heading" >>commands
        same "$options" "$(in_page "${heading:-# OPTIONS}")"
    fi
    [ -z "$completes" ] || complete_like_help "$@"
    for name in $below; do
        (look "$@" "$name")
    done
}

complete_like_help() {
    contains help '11 a check failed'
    [ $# = 0 ] || contains help 'Options for all commands:'
    sed -n '/^Example:$/,$p' help >example
    contains example "vsccam"
    contains example "${1:-}"
    same "$(sed -n 's/^  \(-[a-z],\)\{0,1\}\(--[a-z-]*\).*/\2/p' help | grep -v version | sort)" \
        "$("$program" completion words -- "$@" -- | grep -v version | sort -u)"
    [ -z "$below" ] || same "$below" "$("$program" completion words -- "$@" '')"
}

: >commands
look
same "$(grep '^##' commands | sort)" "$(grep '^##' "$page" | sort)"
[ -n "$completes" ] || exit 0

# What each shell itself makes of the script for it. Bash takes words apart at the sign.
PATH="$(dirname "$program"):$PATH"
# shellcheck disable=SC2016 # what the shells run
{
    in_bash='source <(vsccam completion bash)
        compopt() { COMPREPLY+=("without a blank"); }
        COMP_WORDS=(vsccam "$@") COMP_CWORD=$#
        _vsccam && echo "${COMPREPLY[@]}"'
    same "$(bash -c "$in_bash" bash capture --type = da)" dark
    same "$(bash -c "$in_bash" bash set target-te)" 'target-temp= without a blank'
    in_zsh='compdef() {}
        compadd() { echo "${@[1,-2]}" $found }
        source =(vsccam completion zsh)
        words=(vsccam "$@") CURRENT=$(($# + 1))
        _vsccam'
    same "$(zsh -fc "$in_zsh" zsh capture --type=da)" '-a --type=dark'
    same "$(zsh -fc "$in_zsh" zsh set target-te)" '-S  -a target-temp='
    in_fish='vsccam completion fish | source
        complete -C "$argv"'
    same "$(fish --no-config -c "$in_fish" 'vsccam capture --type=da')" --type=dark
}
while IFS='|' read -r words completed; do
    # shellcheck disable=SC2086 # as many words as there are
    [ "$("$program" completion words -- $words)" = "$completed" ]
done <<'ROWS'
capture --format=raw8 --over|--overwrite
capture --type=da|--type=dark
get target|target-temp
set red = au|
set gain=3 -- cap|capture
--camera list --tim|--timeout
help dar|dark
--color n|never
guide N|N
ROWS

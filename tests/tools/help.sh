#!/bin/sh
# help.sh VSCCAM: what the help of each command tells is what shells complete.
set -eu
program=$1
# shellcheck source=tests/tools/expect.sh
. "$(dirname "$0")/expect.sh"

# look WORDS: at a command and at those below it.
look() {
    expect 0 "$program" "$@" --help
    cp output help
    contains help 'Exit codes:'
    contains help '11 a check failed'
    [ $# = 0 ] || contains help 'Options for all commands:'
    sed -n '/^Example:$/,$p' help >example
    contains example "vsccam"
    contains example "${1:-}"
    sed -n 's/^  \(-[a-z],\)\{0,1\}\(--[a-z-]*\).*/\2/p' help | grep -v version | sort >told
    "$program" completion words -- "$@" -- | grep -v version | sort -u | diff told - >&2
    below=$(sed -n '/^Subcommands:$/,/^$/s/^  \([a-z]*\) .*/\1/p' help)
    [ -z "$below" ] || [ "$below" = "$("$program" completion words -- "$@" '')" ]
    for name in $below; do
        (look "$@" "$name")
    done
}
look

# shellcheck disable=SC2016 # the script that the program makes
[ "$(bash -c '
    cd "${0%/*}" && source <("$0" completion bash)
    COMP_WORDS=(./vsccam capture --type da) COMP_CWORD=3
    _vsccam && echo "${COMPREPLY[@]}"' "$program")" = dark ]
while IFS='|' read -r words completed; do
    # shellcheck disable=SC2086 # as many words as there are
    [ "$("$program" completion words -- $words)" = "$completed" ]
done <<'ROWS'
capture --format=raw8 --over|--overwrite
set gain=3 -- cap|capture
--camera list --tim|--timeout
help dar|dark
--color n|never
guide N|N
ROWS

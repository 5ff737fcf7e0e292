#!/usr/bin/env bash
# Fails when an object compiled for an instruction set of its own defines more than its table of
# kernels. Of an inline function the linker keeps one copy for the whole program, and that could be
# the one that not every processor runs.
# usage: kernel_symbols.sh NM STATIC_LIBRARY
set -euo pipefail

# A line for each object: its name, and all that it defines for others.
Definitions() {
    "$1" --demangle --extern-only --defined-only "$2" | awk '
        /N_(SSE4|AVX2|AVX3|NEON)/ { next } # of Highway: the name tells the instruction set, too
        /:$/ { object = /^kernels_/ ? $1 : ""; if (object) defined[object] = "" }
        object && NF >= 3 { sub(/^[^ ]* . /, ""); defined[object] = defined[object] " " $0 }
        END { for (object in defined) print object defined[object] }'
}

objects=0
status=0
while read -r object defined; do
    objects=$((objects + 1))
    name=${object#kernels_}
    name=${name%%.*}
    expected="vsccam::k${name^}Kernels"
    [[ $defined == "$expected" ]] && continue
    echo "$object defines '$defined' instead of '$expected'"
    status=1
done < <(Definitions "$@")
((objects > 0)) || { echo "no kernels in $2"; status=1; }
exit "$status"

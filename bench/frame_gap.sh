#!/usr/bin/env bash
# Counts what the library does on 32-bit ARM between two frames, while the camera has no transfer to
# fill: the instructions of the capture worker's thread, the C library's included, from when it is
# told of the last transfer of a frame until it queues the first of the next. Fails when there are
# more than the goal.
# usage: frame_gap.sh PROGRAM QEMU [OPTIONS...]
set -euo pipefail

program=$1
shift
emulator=("$@")

goal=20000
frames=3

# The code of the simulated bus and camera lies in one piece behind that of the library.
read -r begin end < <(nm -n "$program" | awk '
    $2 !~ /^[tTwW]$/ { next }
    /6vsccam/ { begin = "" }
    /6vscsim/ { if (begin == "") begin = $1; end = $1 }
    END { print begin, end }')

# The emulator tells of each instruction, the thread and the function it belongs to; of those in
# the piece it does not, which would be most of them.
"${emulator[0]}" -cpu cortex-a7 -singlestep -d nochain,exec \
    -dfilter "0x0+0x$begin,0x$end..0xffffffff" -D /dev/stdout \
    "${emulator[@]:1}" "$program" "$frames" | awk -v goal="$goal" -v frames="$frames" '
    $1 != "Trace" { next }
    { thread = $2 }
    $NF == "GapBegins" { inside[thread] = 1; count[thread] = 0; next }
    inside[thread] && $NF == "GapEnds" {
        inside[thread] = 0
        if (!gaps++ || count[thread] > most) most = count[thread]
    }
    inside[thread] { ++count[thread] }
    END {
        good = gaps >= frames - 1 && most > 0 && most <= goal
        printf "at most %d instructions between two frames, of %d; goal %d%s\n", most, gaps, goal,
            good ? "" : "   missed"
        exit !good
    }'

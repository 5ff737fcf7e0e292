#!/usr/bin/env bash
# Counts what the transforms cost on 32-bit ARM, in instructions per pixel: that takes no board, and
# the same number comes out every time. Fails when one costs more than its goal.
# usage: instructions.sh PROGRAM QEMU [OPTIONS...]
set -euo pipefail

program=$1
shift
emulator=("$@")

# What vectors make possible; plain loops take six to nine times as much.
declare -rA goals=(
    [rgb]=7 [y8]=9 [yuv]=13 [dark]=1.2 [gamma]=4.5 [flip-h]=1.2 [flip-hv]=1.2 [bin-2x2]=1.0
    [pipeline]=14
)

# Instructions NAME RUNS: the emulator tells of each one.
Instructions() {
    "${emulator[0]}" -cpu cortex-a7 -singlestep -d nochain,exec -D /dev/stdout \
        "${emulator[@]:1}" "$program" "$@" | grep -ac '^Trace'
}

status=0
printf '%-10s %10s %6s   instructions per pixel, armhf with NEON\n' transform counted goal
while read -r name pixels; do
    once=$(Instructions "$name" 1)
    twice=$(Instructions "$name" 2)
    goal=${goals[$name]}
    awk -v name="$name" -v cost=$((twice - once)) -v pixels="$pixels" -v goal="$goal" 'BEGIN {
        counted = cost / pixels
        good = cost > 0 && counted <= goal
        printf "%-10s %10.2f %6.1f%s\n", name, counted, goal, good ? "" : "   too many"
        exit !good
    }' || status=1
done < <("${emulator[@]}" "$program")
exit "$status"

#!/usr/bin/env bash
# Counts what transforms, and pictures of the live view, cost on 32-bit ARM, in instructions per pixel
# of the frame: that takes no board, and the same number comes out every time. Fails when one costs
# more than its goal.
# usage: instructions.sh PROGRAM [OPTIONS OF THE EMULATOR...]
set -euo pipefail

# libjpeg-turbo looks into /proc for vectors, where an emulator shows the processor of this machine.
emulator=(qemu-arm -cpu cortex-a7 -E JSIMD_FORCENEON=1 "${@:2}")
program=$1

# What vectors make possible; plain loops take six to nine times as much.
declare -rA goals=(
    [rgb]=7 [y8]=9 [yuv]=13 [dark]=1.2 [gamma]=4.5 [flip-h]=1.2 [flip-hv]=1.2 [bin-2x2]=1.0
    [pipeline]=14 [live-raw8]=30 [live-raw16]=30 [live-mosaic8]=30 [live-mosaic16]=30
)

folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT
gcc -shared -fPIC -O2 -o "$folder/count.so" "$(dirname "$0")/count_instructions.c"

# Instructions NAME RUNS: the emulator counts them.
Instructions() { "${emulator[@]}" -plugin "$folder/count.so" "$program" "$@" 2>&1; }

status=0
printf '%-14s %10s %6s   instructions per pixel, armhf with NEON\n' transform counted goal
while read -r name pixels; do
    once=$(Instructions "$name" 1)
    twice=$(Instructions "$name" 2)
    goal=${goals[$name]}
    awk -v name="$name" -v cost=$((twice - once)) -v pixels="$pixels" -v goal="$goal" 'BEGIN {
        counted = cost / pixels
        good = cost > 0 && counted <= goal
        printf "%-14s %10.2f %6.1f%s\n", name, counted, goal, good ? "" : "   too many"
        exit !good
    }' || status=1
done < <("${emulator[@]}" "$program")
exit "$status"

#!/usr/bin/env bash
# Draws docs/architecture.svg: the rooms of the library as its own includes show them, and the ways
# of a frame and of a setting. Fails when an include goes upwards, or a way where none goes.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# From top to bottom, with what a room is for.
readonly rooms="
api      the exported functions, the open camera, the list of products
models   one driver per sensor family, one file of data per sensor
cooling  cooler and fan
core     the camera and its parts: settings, delivery, automatics
capture  the capture worker, its state, the account of drops
image    the ring of frames, frame marks, transforms
usb      requests, registers, flash, bulk transfers, firmware
base     clock, threads and locks, debug output
"

names() { awk 'NF { print $1 }' <<<"$rooms"; }

# Pairs of rooms of which the first includes the second, but for base, which everybody does.
includes() {
    local room
    for room in $(names); do
        grep -rhoE '^#include "[a-z]+/' "src/$room" | sed 's/.*"//; s,/,,' | sort -u |
            while read -r other; do
                [[ $other == "$room" || $other == base ]] || echo "$room $other"
            done
    done
}

rank() { names | grep -nx "$1" | cut -d: -f1; }

check() {
    local from to
    while read -r from to; do
        if (($(rank "$from") > $(rank "$to"))); then
            echo "src/$from includes src/$to, which stands above it" >&2
            return 1
        fi
    done
}

draw() {
    echo 'digraph rooms { rankdir=TB; newrank=true; nodesep=0.6;'
    echo 'node [shape=box, style="rounded,filled", fillcolor="#eef2f7", fontname="sans-serif"];'
    echo 'edge [color="#9aa5b1", fontname="sans-serif", fontsize=11];'
    echo 'host [label="host program", fillcolor=white]; wire [label="camera", fillcolor=white];'
    awk 'NF { name = $1; $1 = ""; printf "%s [label=\"%s\\n%s\"];\n", name, name, substr($0, 2) }' \
        <<<"$rooms"
    names | tr '\n' ' ' | sed 's/ $//; s/ / -> /g; s/$/ [style=invis];\n/'
    sed 's/ / -> /; s/$/;/' <<<"$1"
    echo 'edge [color="#1f6fb2", fontcolor="#1f6fb2", penwidth=2.5];'
    echo 'wire -> usb [label="a frame"]; usb -> capture; capture -> core; core -> host;'
    echo 'edge [color="#b2541f", fontcolor="#b2541f", penwidth=2.5];'
    echo 'host -> api [label="a setting"]; api -> models; models -> usb; usb -> wire;'
    echo '}'
}

pairs=$(includes)
check <<<"$pairs"
[[ ${1:-} == --check ]] || draw "$pairs" | dot -Tsvg >docs/architecture.svg

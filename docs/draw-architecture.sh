#!/usr/bin/env bash
# Draws docs/architecture.svg: the rooms of the library as their includes show them, and the ways of
# a frame and of a setting. With --check it draws nothing and only fails: when a folder of src is no
# room here, when an include goes upwards, when a way goes where no include does, or when the
# picture shows something else.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# From top to bottom, with what a room is for.
readonly rooms="
api        the exported functions, the open camera
models     one driver per sensor family, one file of data per sensor
cooling    cooler and fan
core       the camera and its parts: settings, delivery, automatics
catalogue  what is said of products and controls, for programs, too
capture    the capture worker, its state, the account of drops

image      the ring of frames, frame marks, transforms
usb        requests, registers, flash, bulk transfers, firmware
base       clock, threads and locks, debug output
"

# What comes from the camera, and what the host asks for: step by step through the rooms.
readonly ways="
frame    camera usb capture core host
setting  host api models usb camera
"

readonly picture=docs/architecture.svg

Fail() {
    echo "$*" >&2
    exit 1
}

names() { awk 'NF { print $1 }' <<<"$rooms"; }

# Pairs of rooms of which the first includes the second, but for base, which everybody does.
includes() {
    grep -roE '^#include "[a-z0-9_]+/' src --include='*.h' --include='*.cpp' --include='*.inl' |
        sed -nE 's,^src/([^/]+)/[^"]*"([^/]+)/$,\1 \2,p' | sort -u |
        awk '$1 != $2 && $2 != "base"'
}

# Pairs of rooms that follow each other on the ways.
steps() {
    awk 'NF { for (i = 2; i < NF; ++i) print $i, $(i + 1) }' <<<"$ways" | grep -vwE 'host|camera'
}

rank() { names | grep -nx "$1" | cut -d: -f1; }

# check PAIRS
check() {
    local from to
    diff <(names | sort) <(find src -mindepth 1 -maxdepth 1 -type d -printf '%f\n' | sort) >&2 ||
        Fail "the rooms in $0 (<) are not the folders of src (>)"
    while read -r from to; do
        (($(rank "$from") < $(rank "$to"))) ||
            Fail "src/$from includes src/$to, which stands above it"
    done <<<"$1"
    while read -r from to; do
        grep -qxE "$from $to|$to $from" <<<"$1" ||
            Fail "a way goes from $from to $to, which know nothing of each other"
    done < <(steps)
}

# dot_source PAIRS: what graphviz draws.
dot_source() {
    echo 'digraph rooms { rankdir=TB; newrank=true; nodesep=0.6;'
    echo 'node [shape=box, style="rounded,filled", fillcolor="#eef2f7", fontname="sans-serif"];'
    echo 'edge [color="#9aa5b1", fontname="sans-serif", fontsize=11];'
    echo 'host [label="host program", fillcolor=white]; camera [fillcolor=white];'
    awk 'NF { name = $1; $1 = ""; printf "%s [label=\"%s\\n%s\"];\n", name, name, substr($0, 2) }' \
        <<<"$rooms"
    names | paste -sd ' ' | sed 's/ / -> /g; s/$/ [style=invis];/'
    sed 's/ / -> /; s/$/;/' <<<"$1"
    awk 'NF { colour = $1 == "frame" ? "#1f6fb2" : "#b2541f"
              printf "edge [color=\"%s\", fontcolor=\"%s\", penwidth=2.5];\n", colour, colour
              for (i = 2; i < NF; ++i)
                  printf "%s -> %s%s;\n", $i, $(i + 1), i == 2 ? " [label=\"a " $1 "\"]" : "" }' \
        <<<"$ways"
    echo '}'
}

pairs=$(includes)
source=$(dot_source "$pairs")
mark="<!-- drawn from $(sha256sum <<<"$source" | cut -c1-16) -->"
check "$pairs"
if [[ ${1:-} == --check ]]; then
    grep -qxF -- "$mark" "$picture" || Fail "$picture shows something else: run ./dev docs"
    exit
fi
dot -Tsvg <<<"$source" >"$picture"
echo "$mark" >>"$picture"

#!/usr/bin/env bash
# build.sh ARCHITECTURE SYSTEM FOLDER: builds the Debian packages of the tree that lies in
# FOLDER/vsccam, in a Debian that has what they need; they go to FOLDER. Needs root.
set -euo pipefail
architecture=$1 system=$2 folder=$3

# What is the same for all architectures is built once.
kind=(--build=binary)
[[ $architecture == amd64 ]] || kind=(--build=any --host-arch="$architecture")
# For whoever builds often, a compiler cache is kept beside the packages.
cache=(env CCACHE_DIR=/mnt/ccache)

packaging/enter.sh "$system" "$folder" "${cache[@]}" sh -c 'cd /mnt/vsccam && exec dpkg-buildpackage "$@"' sh \
    "${kind[@]}" --build-profiles=nocheck --unsigned-changes

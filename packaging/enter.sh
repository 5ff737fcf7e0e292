#!/usr/bin/env bash
# enter.sh SYSTEM FOLDER COMMAND...: runs a command as root of the Debian that lies in a folder, with
# another folder as /mnt. What it writes elsewhere is gone afterwards. Needs root.
set -euo pipefail

if [[ $1 != --inside ]]; then
    scratch=$(mktemp -d)
    trap 'rmdir "$scratch"' EXIT
    # In a namespace of their own, mounts and processes end with the command.
    unshare --mount --pid --fork --kill-child "$0" --inside "$scratch" "$(realpath "$1")" \
        "$(realpath "$2")" "${@:3}"
    exit
fi

scratch=$2 system=$3 folder=$4
mount -t tmpfs tmpfs "$scratch"
mkdir "$scratch"/{upper,work,root}
mount -t overlay overlay "$scratch/root" \
    -o "lowerdir=$system,upperdir=$scratch/upper,workdir=$scratch/work"
mount -t proc proc "$scratch/root/proc"
mount -t sysfs -o ro sysfs "$scratch/root/sys"
mount --bind "$folder" "$scratch/root/mnt"
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 HOME=/root
unset TMPDIR
exec chroot "$scratch/root" "${@:5}"

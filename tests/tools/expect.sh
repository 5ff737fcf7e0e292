# Sourced by the scripts here: a folder of its own for each, cameras, and what they expect of programs.
# shellcheck shell=sh
folder=$(mktemp -d)
trap '[ $? = 0 ] || tail -n 20 output messages; rm -rf "$folder"' EXIT
cd "$folder" || exit

# expect CODE COMMAND...: the command ends with this code.
expect() {
    wanted=$1
    shift
    got=0
    "$@" >output 2>messages || got=$?
    if [ "$got" != "$wanted" ]; then
        echo "'$*' ended with $got instead of $wanted:"
        cat output messages
        exit 1
    fi
}

# contains FILE TEXT
contains() {
    grep -qF -- "$2" "$1" || {
        echo "no '$2' in:"
        cat "$1"
        exit 1
    }
}

# sim ARGUMENTS: vsccam with a simulated camera.
sim() {
    "$vsccam" --sim VSC470MC "$@"
}

# faulty FAULTS ARGUMENTS: the same with a camera that fails.
faulty() {
    faults=$1
    shift
    "$(dirname "$vsccam")/vscsim" run --camera VSC470MC --fault "$faults" -- "$vsccam" "$@"
}

#!/usr/bin/env bash
# interface.sh [--release] LIBRARY DESCRIPTION: compares the functions of a library, their arguments
# and types with those of the last release, whose description is in a file; or, for a release,
# writes that file. The library needs its debug information. Values of enumerations are not seen.
set -euo pipefail
headers=include

if [[ $1 == --release ]]; then
    abidw --exported-interfaces-only --no-corpus-path --no-comp-dir-path --no-show-locs \
        --no-parameter-names --headers-dir "$headers" --out-file "$3" "$2"
else
    abidiff --headers-dir2 "$headers" "$2" "$1"
fi

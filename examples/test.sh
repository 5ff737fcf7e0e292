#!/usr/bin/env bash
# test.sh VSCSIM FOLDER: runs the programs that were built into the folder with simulated cameras.
set -euo pipefail
vscsim=$1 folder=$2

echo "focus: a star of some width in each exposure"
"$vscsim" run --camera VSC470MM -- "$folder/focus" 3 | tee /dev/stderr |
    awk '/ pixels / { n += $(NF - 2) > 1 && $(NF - 2) < 30 } END { exit n != 3 }'

echo "video: frames, until somebody presses Ctrl-C"
# In the background of a script, SIGINT would be ignored.
exec {lines}< <(echo "$BASHPID" && exec env --default-signal=INT \
    "$vscsim" run --camera VSC470MC -- "$folder/video" 3600)
read -r -u "$lines" program
read -r -u "$lines" line
echo "$line"
[[ $line == *" frames "*"exposure "* ]]
kill -s INT "$program"
wait "$program"

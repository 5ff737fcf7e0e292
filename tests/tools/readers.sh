#!/bin/sh
# readers.sh VSCCAM SIRIL PYTHON: other programs read the pictures, and see the same colours in them
# however they were mirrored and cut out.
set -eu
vsccam=$1
siril=$2
python=$3
# shellcheck source=tests/tools/expect.sh
. "$(dirname "$0")/expect.sh"
export HOME="$PWD" # for settings of that program

take() {
    expect 0 "$vsccam" --sim VSC470MC:flawless:glow=4000 capture -e 300ms --no-png "$@"
}
number=0
while read -r options; do
    number=$((number + 1))
    # shellcheck disable=SC2086 # as many options as there are
    take -o "sky_$number.fit" $options
done <<'ROWS'

--flip-x
--flip-y
--flip-x --flip-y
--roi 640x480+66+33 --flip-y
ROWS
expect 0 "$python" - sky_?.fit <<'SCRIPT'
import sys
from astropy.io import fits
for name in sys.argv[1:]:
    with fits.open(name) as file:
        file.verify("exception")
        assert file[0].data.dtype == "uint16" and file[0].data.min() > 0
        assert file[0].header["BITDEPTH"] == 12 and file[0].header["ROWORDER"] == "TOP-DOWN"
SCRIPT

# The TIFF file has the samples that the tool tells of.
take -o plain/sky.tif --roi 640x480+66+33
told=$(sed 's/.*min \([0-9]*\) mean .* max \([0-9]*\) .*/\1 \2/' output)
{
    printf 'requires 1.0.0\nconvert sky_ -debayer -out=colour\n'
    printf 'load %s\nstat\n' colour/sky_00001 colour/sky_00002 colour/sky_00003 colour/sky_00004 \
        colour/sky_00005 plain/sky.tif
} >script
expect 0 "$siril" -d "$PWD" -s script
sed -n 's/.*layer: Mean: \([0-9.]*\).*Min: \([0-9]*\).*Max: \([0-9]*\).*/\1 \2 \3/p' output >levels
awk '{ mean[NR] = $1 } END {
    if (NR != 16 || mean[2] < 1.1 * mean[1] || mean[1] < 1.1 * mean[3]) exit 1 # green, red, blue
    for (i = 4; i <= 15; i++)
        if ((mean[i] / mean[(i - 1) % 3 + 1] - 1) ^ 2 > 0.01 ^ 2) exit 1
}' levels || { cat output; exit 1; }
[ "$(sed -n '16s/[0-9.]* //p' levels)" = "$told" ]

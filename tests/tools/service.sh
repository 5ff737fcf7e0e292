#!/bin/sh
# service.sh VSCCAM VSCSERVICE VSCSIM: hot pixels, from the dark frame into the camera's
# flash and out of the pictures of later programs.
set -eu
vsccam=$1
service=$2
simulator=$3
# shellcheck source=tests/tools/expect.sh
. "$(dirname "$0")/expect.sh"

# As delivered: nothing was ever written.
head -c 1048576 /dev/zero | tr '\0' '\377' >delivered.bin
cp delivered.bin flash.bin

bench() {
    "$service" --sim VSC470MC:flash=flash.bin hotpixels "$@" </dev/null
}

expect 2 "$service"
expect 10 "$service" --sim VSC340MM hotpixels show
expect 0 "$service" --json --sim VSC470MC-Cool controls
contains output '{"name":"TargetTemp","value":0,"min":-40,"max":30,'
expect 1 bench show
expect 9 bench save never.bmp --yes
expect 0 "$vsccam" --sim VSC470MC:capped dark make -e 900ms --gain 200 -n 3 -o dark.bmp
bright=$(sed -n 's/.* \([0-9]*\) bright pixels$/\1/p' output)
[ "$bright" -gt 100 ]

# Nothing is written without a yes, nor what is no table of this camera or too long for the flash.
expect 2 bench save dark.bmp
{
    head -c 1080 dark.bmp
    yes "$(printf '\377      ')" | head -c $((1936 * 1096))
} >light.bmp
expect 9 bench save light.bmp --yes
contains messages '265232 bright pixels'
expect 9 "$service" --sim VSC420MM hotpixels save dark.bmp --yes
contains messages 'no dark frame of this camera'
cmp flash.bin delivered.bin

expect 0 bench --json save dark.bmp --yes
contains output "\"hot_pixels\":$bright"
expect 0 bench show --positions
contains output "$bright hot pixels"
[ "$(wc -l <output)" = $((bright + 1)) ]
expect 0 "$vsccam" -v --sim VSC470MC:flash=flash.bin info
contains messages 'Load HPC table success'

# A dark frame of a camera that corrects its hot pixels does not show them.
expect 0 "$vsccam" --sim VSC470MC:capped:flash=flash.bin dark make -e 900ms --gain 200 -n 3 -o new.bmp
expect 0 bench save new.bmp --yes
contains messages "of the $bright hot pixels in the flash are not bright"
expect 0 bench erase --yes
cmp flash.bin delivered.bin
expect 1 bench show

# A table that ends with a page of the flash is there, though the library takes it for not saved.
{
    head -c 1080 dark.bmp
    yes "$(printf '\377      ')" | head -c $((8 * 1008))
    yes '       ' | head -c $((1936 * 1096 - 8 * 1008))
} >pages.bmp
expect 0 bench save pages.bmp --yes
expect 0 bench show
contains output '1008 hot pixels'

# Where the flash is not even erased, the table of before stays.
cp flash.bin before.bin
expect 1 "$simulator" run --camera VSC470MC:flash=flash.bin --fault refuse-request:c4 -- \
    "$service" hotpixels save dark.bmp --yes
contains messages 'those of before are unchanged'
cmp flash.bin before.bin

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

# Firmware: only what is whole goes to a memory that the camera has, and is there afterwards.
image() { # HEAD BYTES TAIL
    # shellcheck disable=SC2059
    printf "$1"
    head -c "$2" dark.bmp
    # shellcheck disable=SC2059
    printf "$3"
}
firmware() {
    rm -f requests
    "$service" --sim "$1:flash=flash.bin:requests=requests" firmware write "$2" "$3" "$4" </dev/null
}
image 'CY\014\260\000\014\000\000\000\000\000\000' 12288 '\000\000\000\000\0\0\0\100sums' >fx3.img
image 'CY\034\260\000\100\001\000\000\000\000\000' 327680 '\000\000\000\000\0\0\0\100sums' >long.img
image '\302\0\0\0\0\0\0\0\017\377\0\0' 4095 '\200\001\346\000\0' >fx2.img
export VSCCAM_FIRMWARE_DIR="$PWD"
expect 9 firmware VSC340MM eeprom fx2.img --yes
head -c 2048 /dev/zero >vendor1.bin
head -c 1427 /dev/zero >vendor2.bin
while read -r code model memory file message; do
    expect "$code" firmware "$model" "$memory" "$file" --yes
    grep -q "$message" output messages
done <<'ROWS'
0 VSC340MM ram fx2.img controller.runs.them
0 VSC340MM eeprom fx2.img read.back
10 VSC340MM flash fx2.img no.flash.for.firmware
9 VSC340MM ram fx3.img no.whole.firmware
9 VSC470MC eeprom long.img more.than.the.EEPROM
0 VSC470MC eeprom fx3.img read.back
0 VSC470MC ram fx3.img bring
9 VSC470MC flash fx2.img no.whole.firmware
9 VSC470MC flash no.img cannot.be.read
0 VSC470MC flash long.img its.table.of.hot.pixels
ROWS
cmp -n "$(wc -c <long.img)" flash.bin long.img
tail -c $((1048576 - 6 * 65536)) flash.bin | cmp - delivered.bin 2>messages || grep -q "EOF on -" messages
expect 2 firmware VSC470MC flash fx3.img -q
contains messages 'warning: The first 64 KiB of the flash of KYR VSC470MC are erased: the firmware that'
[ "$(grep -c 'flash erase' requests)" = 0 ]
for fault in VSC470MC:flash:refuse-request:c2@3 VSC470MC:flash:corrupt-answer:c3@1x9 \
    VSC470MC:eeprom:corrupt-answer:bb@0x9 VSC340MM:eeprom:corrupt-answer:a9@0x9; do
    camera=${fault%%:*}
    fault=${fault#*:}
    file=fx3.img
    [ "$camera" = VSC470MC ] || file=fx2.img
    expect 1 "$simulator" run --camera "$camera" --fault "${fault#*:}" -- \
        "$service" firmware write "${fault%%:*}" "$file" --yes
    contains messages 'write once more before'
done
expect 0 "$service" --sim VSC470MC firmware show
contains output 'firmware 3, FPGA '

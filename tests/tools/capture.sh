#!/bin/sh
# capture.sh VSCCAM FITSVERIFY: the program as a user starts it, with simulated cameras.
set -eu
vsccam=$1
fitsverify=$2
# shellcheck source=tests/tools/expect.sh
. "$(dirname "$0")/expect.sh"

sim() {
    "$vsccam" --sim VSC470MC "$@"
}

# faulty FAULTS ARGUMENTS: the same with a camera that fails.
faulty() {
    faults=$1
    shift
    "$(dirname "$vsccam")/vscsim" run --camera VSC470MC --fault "$faults" -- "$vsccam" "$@"
}

expect 2 "$vsccam"
expect 2 "$vsccam" capture -e 5parsec
expect 0 sim --json info
contains output '"controls":[{"name":"gain","available":true,"value":200,'
expect 0 sim --json list
contains output '"model":"KYR VSC470MC"'
expect 3 sim list --require 2
expect 3 sim --camera VSC470MM info

# Results stay clean even when the library talks; the two pictures follow on the one of before.
expect 0 sim capture -e 10ms -o m42.fit --no-png
expect 0 sim -v --json capture -e 10ms -n 2 -o 'm42_{seq}.fit' --fits-key FILTER=Ha
[ "$(grep -c '^{"schema":1,.*}$' output)" = 2 ]
[ "$(wc -l <output)" = 2 ]
contains messages 'VSC SDK'
expect 0 sim capture -e 10ms -o 'm42_{seq}.fit' --format rgb24 --roi 640x480+64+32
contains output m42_3.fit
[ -s m42_3.png ]
expect 0 sim --log /dev/full capture -e 10ms --roi 640x480+65+33 -o moved.fit
contains messages 'region is 640x480+64+32 on this camera'
for file in m42.fit m42_1.fit m42_2.fit m42_3.fit; do
    "$fitsverify" -q "$file"
done
contains m42_1.fit "SIMULATE=                    T"

expect 9 sim capture -e 10ms -o m42.fit
echo mine >m43.png
expect 9 sim capture -e 10ms -o m43.fit
[ "$(cat m43.png)" = mine ]
expect 0 sim capture -e 10ms -o m43.fit --no-png
expect 10 sim capture -e 10ms --bin 3
expect 10 sim capture --cool -10
expect 2 sim capture --roi 641x480+0+0
expect 2 sim capture --roi 640x480+2147483647+0
expect 2 sim capture --roi 640x480+0+2147483647

# A dark frame is made with the cap on, and subtracted from pictures of one byte a pixel.
expect 0 "$vsccam" --sim VSC470MC:capped --json dark make -e 20ms -n 3 -o dark.bmp
contains output '"width":1936,"height":1096,'
expect 9 sim dark make -e 20ms -o dark.bmp
expect 2 "$vsccam" --sim VSC065MC-Cool dark make -n 18 -o never.bmp
contains messages 'medians of this sensor are made of 17 frames at most'
expect 0 "$vsccam" dark info dark.bmp
contains output 'dark.bmp  1936 x 1096'
expect 9 "$vsccam" dark info m42.fit
expect 0 sim capture -e 20ms --format raw8 --dark dark.bmp -o subtracted.fit
contains subtracted.fit "DARKSUB =                    T"
expect 9 sim capture -e 20ms --format raw8 --dark m42.fit -o never.fit
expect 2 sim capture -e 20ms --dark dark.bmp -o never.fit

# A reader that goes away is an error like any other, not the end by a signal.
{ sim capture -e 10ms -o unread.fit 2>messages || echo $? >code; } | true
contains code 9

# A camera that is lost, or delivers nothing.
expect 6 faulty unplug capture -e 10ms -o never.fit
expect 7 faulty mute --timeout 1s capture -e 10ms -o never.fit

# Controls under their names, in their units; settings hold for the command behind them.
expect 0 sim set gain=300 exposure=20ms red=auto -- get gain exposure
[ "$(cat output)" = "$(printf '300\n20ms')" ]
expect 0 sim --json controls
contains output '"name":"exposure","available":true,"value_s":0.01'
expect 0 sim set exposure=40us -- get exposure
contains output 40us
expect 0 sim set exposure=40us exposure=auto -- info
expect 2 sim set gain=700 -- info
contains messages '0 to 600'
expect 2 sim set exposure=bright -- info
expect 2 sim set auto-max-exposure=1.5s -- info
expect 10 sim set gamma=auto -- info
expect 2 sim set gian=3 -- info
contains messages 'did you mean gain?'
expect 2 sim set gain -- info
contains messages "'gain' is neither a setting"
expect 0 "$vsccam" --sim VSC048MM set auto-max-exposure=1s -- get auto-max-exposure
expect 10 sim get target-temp
expect 2 "$vsccam" set gain=3

# A pulse, the identifier, and the cooler, which warms again at the end.
for line in n:0 S:1 e:2 W:3; do
    rm -f requests
    expect 0 "$vsccam" --sim VSC470MC:requests=requests guide "${line%:*}" 50ms
    [ "$(grep ^guide requests)" = "$(printf 'guide on %d\nguide off %d' "${line#*:}" "${line#*:}")" ]
done
expect 6 faulty unplug:b0@1 guide s 1h
expect 1 sim id get
expect 6 faulty unplug:c4 id set 0102030405060708 --yes
head -c 1048576 /dev/zero >flash.bin
expect 0 "$vsccam" --sim VSC470MC:flash=flash.bin id set 0102030405060708 --yes
contains output 0102030405060708
expect 0 "$vsccam" --sim VSC470MC:flash=flash.bin id get
contains output 0102030405060708
expect 2 sim id set 01 --yes
expect 10 sim cool --target 0
expect 0 "$vsccam" --sim VSC470MM-Cool cool --target 15 --for 1s
contains output 'target  15 C'
expect 0 "$vsccam" --sim VSC470MM-Cool:ambient=35 cool --target 0 --ramp 2 --for 1s
contains output 'target  30 C'

# At a terminal the temperature stays in one line, but not in a file.
script -qefc "'$vsccam' --sim VSC470MM-Cool cool --target 15 --for 1s >words" /dev/null >output
contains words 'target  15 C'

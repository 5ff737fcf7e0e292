#!/bin/sh
# record.sh VSCCAM BAD_DISK SIRIL: video as a user takes it, with simulated cameras, on disks good
# and bad, and what an independent reader makes of it.
set -eu
vsccam=$1
bad_disk=$2
siril=$3
vscsim=$(dirname "$vsccam")/vscsim
# shellcheck source=tests/tools/expect.sh
. "$(dirname "$0")/expect.sh"

# on_disk KIND ARGUMENTS: with a disk that is bad.
# shellcheck disable=SC2016 # of the script
printf 'export BAD_DISK="$1" LD_PRELOAD="%s:$LD_PRELOAD"\nshift\nexec "$@"\n' "$bad_disk" >disk
on_disk() {
    kind=$1
    shift
    "$vscsim" run --camera VSC470MC -- sh disk "$kind" "$vsccam" "$@"
}

# number KEY: of the JSON that was printed last
number() {
    sed -n "s/.*\"$1\":\([0-9.]*\).*/\1/p" output | tail -n 1
}

# sound FILE FRAMES: nothing is wrong with it, and it has so many; "" for any number but 0.
sound() {
    expect 0 "$vsccam" --json ser info "$1"
    contains output '"faults":[]'
    [ "$(number frames)" = "${2:-$(number times)}" ]
    [ "$(number times)" = "$(number frames)" ]
    [ "$(number frames)" -gt 0 ]
}

small='--roi 640x480+64+32'

# shellcheck disable=SC2086 # options
{
    expect 0 sim --json record $small -e 50ms --frames 20 -o moon.ser --observer Me
    contains output '"file":"moon.ser","frames":20,'
    contains output '"dropped":0,'
    sound moon.ser 20
    contains output '"width":640,"height":480,"bits":8,"colour":"RGGB",'
    contains output '"instrument":"KYR VSC470MC","observer":"Me"'
    expect 9 sim record $small --frames 1 -o moon.ser
    expect 9 sim record $small --frames 1 -o no/such/folder/moon.ser
    expect 9 sim record $small --frames 1 -o "$PWD" --overwrite
    expect 0 sim record $small --duration 500ms --format rgb24 -o moon.ser --overwrite
    sound moon.ser ''
    contains output '"colour":"BGR"'
    expect 0 "$vsccam" ser split moon.ser --frames 2..3
    sound moon_2-3.ser 2
    expect 0 "$vsccam" ser split moon.ser --size 3 -o part.ser
    sound part_002.ser 3
    expect 9 "$vsccam" ser split moon.ser --frames 2..3
    for wrong in 0..3 3..2 2 a..b 1..1000000; do
        expect 2 "$vsccam" ser split moon.ser --frames "$wrong"
    done

    # Frames that get lost, and too many of them; a camera that goes away, also for good.
    expect 0 faulty short-frame@3x2 --json record $small -e 50ms --frames 10 -o lossy.ser
    contains output '"dropped":2,"dropped_by":{"short":2,'
    expect 8 faulty short-frame@3x40 --json record $small --max-drops 5 -o lossy.ser --overwrite
    sound lossy.ser ''
    expect 0 faulty replug@10=5000 record $small --frames 20 -o back.ser
    contains messages 'is gone'
    contains messages 'frames come again'
    sound back.ser 20
    expect 6 faulty unplug@10 --timeout 3s record $small -o lost.ser
    contains messages 'is gone'
    sound lost.ser 10
    expect 7 faulty 'empty-frame@10x*' --timeout 3s record $small -o mute.ser
    sound mute.ser 10

    # Disks. A frame of 640 x 480 has 300 KiB, its header 178 bytes.
    for kind in full:3500000 broken:3500000; do
        expect 9 on_disk "$kind" record $small -o bad.ser --overwrite
        contains messages 'cannot write bad.ser: '
        sound bad.ser 11
    done
    (
        ulimit -f 4000
        expect 9 sim record $small -o bad.ser --overwrite
    )
    sound bad.ser ''
    mkdir folder
    {
        until [ -s folder/gone.ser ]; do sleep 0.1; done
        rm -r folder
    } &
    expect 9 sim record $small -o folder/gone.ser
    contains messages 'folder/gone.ser was removed'
    # The camera has more to tell than a card of 1 MB/s takes: what the buffer has no room for is
    # dropped and counted, as are frames that a busy machine leaves with the library.
    expect 0 on_disk slow:1000000 --json record $small --buffer 3 --duration 2s -o slow.ser
    [ "$(number buffer_full)" -gt 0 ]
    [ $(($(number buffer_full) + $(number ring_full))) = "$(number dropped)" ]
    sound slow.ser "$(number frames)"
}

# begin COMMAND...: runs it in the background, as soon as `file` is written to. "pid" names it.
begin() {
    rm -f pid "$file"
    # shellcheck disable=SC2016 # of the inner shell
    "$vscsim" run --camera VSC470MC -- sh -c 'echo $$ >pid; exec "$@"' begin "$@" \
        >output 2>messages &
    run=$!
    until [ "$(stat -c %s "$file" 2>/dev/null || echo 0)" -gt 1000000 ]; do
        kill -0 "$run" || fail 'ended before it recorded'
        sleep 0.1
    done
}

# ended CODE
ended() {
    got=0
    wait "$run" || got=$?
    [ "$got" = "$1" ] || fail "ended with $got instead of $1"
}

fail() {
    echo "$*"
    cat output messages
    exit 1
}

# Stopped, it is closed; who does not wait for a slow disk loses what has not been written.
# shellcheck disable=SC2086 # options
{
    file=stopped.ser
    for signal in INT:130 TERM:143 HUP:129; do
        begin "$vsccam" --json record $small -o "$file"
        kill -s "${signal%:*}" "$(cat pid)"
        ended "${signal#*:}"
        contains output "\"file\":\"$file\""
        sound "$file" ''
    done
    begin sh disk slow:300000 "$vsccam" record $small -o "$file"
    kill -s INT "$(cat pid)"
    sleep 1
    kill -s INT "$(cat pid)"
    ended 130
    contains messages 'frames that waited are not written'
    sound "$file" ''

    # The header tells the frames that are there, also when no more of them come.
    # shellcheck disable=SC2016 # of the inner shell
    "$vscsim" run --fault 'empty-frame@5x*' -- sh -c 'echo $$ >pid; exec "$@"' silent \
        "$vsccam" --timeout 1min record $small -e 20ms -o silent.ser >output 2>messages &
    run=$!
    until [ "$(od -An -td4 -j38 -N4 silent.ser 2>/dev/null)" = '           5' ]; do
        kill -0 "$run" || fail 'ended before it told 5 frames'
        sleep 0.1
    done
    kill -s INT "$(cat pid)"
    ended 130

    # Killed at any moment, it keeps all that was written, and the times of all but the last second.
    file=killed.ser
    for moment in 0 0.13 0.37 0.61; do
        begin "$vsccam" record $small -o "$file"
        sleep "$moment"
        kill -s KILL "$(cat pid)"
        ended 137
        frames=$((($(stat -c %s "$file") - 178) / (640 * 480)))
        expect 9 "$vsccam" ser info "$file"
        contains messages "vsccam ser repair $file"
        expect 0 "$vsccam" --json ser repair "$file"
        [ "$(number frames_told)" -le "$frames" ]
        sound "$file" "$frames"
    done

    # Frames for other programs: bare, and with a header that tells what they are.
    sim stream $small --raw --frames 3 >bare 2>messages
    [ "$(stat -c %s bare)" = $((3 * 640 * 480)) ]
    while read -r format tag bytes; do
        sim stream $small --format "$format" --rate 25 --frames 2 >y4m 2>messages
        [ "$(head -n 1 y4m)" = "YUV4MPEG2 W640 H480 F25000:1000 Ip A1:1 C$tag" ]
        [ "$(sed 1d y4m | wc -c)" = $((2 * (6 + bytes))) ]
    done <<'ROWS'
raw8 mono 307200
y8 mono 307200
raw16 mono16 614400
rgb24 444 921600
ROWS
    for frames in 1 5 20; do # fewer, and more, than tell the rate
        sim stream $small --frames $frames >y4m 2>messages
        [ "$(sed 1d y4m | wc -c)" = $((frames * (6 + 640 * 480))) ]
    done
    sim stream $small | head -c 1000000 >y4m # a reader that goes away
    mkfifo pipe
    exec 4<>pipe # one that takes nothing
    # shellcheck disable=SC2016 # of the inner shell
    "$vscsim" run --camera VSC470MC -- sh -c 'echo $$ >pid; exec "$@" >pipe' stream \
        "$vsccam" stream $small 2>messages &
    run=$!
    until grep -q 'mosaic' messages; do sleep 0.1; done
    sleep 1
    kill -s INT "$(cat pid)"
    ended 130
    expect 2 sim --json stream
    expect 0 sim --json bench $small --duration 2s
    contains output '{"schema":1,"second":1,"frames_per_s":'
    contains output '{"schema":1,"total":{"frames":'
    contains output '"link_mib_per_s":381.'

    # An independent reader finds the frames, and in each the colours that the library makes of the
    # mosaic, however it is mirrored.
    export HOME="$PWD" XDG_CONFIG_HOME="$PWD"
    while IFS='|' read -r name scale develop options; do
        expect 0 "$vsccam" --sim VSC470MC:flawless:glow=3000 set red=50 blue=50 -- record $small \
            -e 400ms --gain 350 --frames 2 -o "$name.ser" $options
        printf 'requires 1.0.0\n%s\nload %s.ser\nstat\n' "$develop" "${develop:+pp_}$name" >script.ssf
        "$siril" -d "$PWD" -s script.ssf >messages 2>&1
        [ -z "$develop" ] || contains messages 'frame count: 2'
        [ -z "$develop" ] || contains messages 'Timestamps in the SER file are correctly ordered'
        sed -n 's/^log: \([A-Z]\).* layer:.*Median: \([0-9.]*\).*/\1 \2/p' messages |
            awk -v scale="$scale" '{ print $1, int($2 / scale) }' >"$name.colours"
        [ "$(wc -l <"$name.colours")" = 3 ]
        paste -d ' ' plain.colours "$name.colours" |
            awk '$1 != $3 || ($2 - $4) ^ 2 > 1 { exit 1 }' || fail "other colours in $name.ser"
    done <<'ROWS'
plain|1||--format rgb24
mosaic|1|preprocess mosaic -debayer|
left|1|preprocess left -debayer|--flip-x
up|257|preprocess up -debayer|--flip-y --format raw16
both|1|preprocess both -debayer|--flip-x --flip-y
ROWS
    [ "$(cut -d ' ' -f 2 plain.colours | sort -u | wc -l)" = 3 ] # or nothing was seen
}

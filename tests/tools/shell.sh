#!/bin/sh
# shell.sh VSCCAM: one camera, kept open from line to line, and what ends lines and shell.
set -eu
vsccam=$1
# shellcheck source=tests/tools/expect.sh
. "$(dirname "$0")/expect.sh"

# shell CAMERA LINES ARGUMENTS: runs lines, spelt as printf does.
shell() {
    camera=$1
    # shellcheck disable=SC2059
    printf "$2" >lines
    shift 2
    rm -f requests
    "$vsccam" --sim "$camera:requests=requests" "$@" shell <lines
}

# Controls stay from line to line, and no failing line ends the shell; it tells of the last one.
expect 3 "$vsccam" shell
expect 2 shell VSC470MC 'get gain\nset gain=300\n# a remark\n\ncaptur\nget gain --json\nshell\nlist --require 1\nget gain'
[ "$(sed -n '$p' output)" = 300 ]
contains output '"name":"gain","available":true,"value":300,'
contains messages 'did you mean capture?'
contains output 'colour -       yes'
contains messages '2 of 7 commands failed'
expect 0 shell VSC470MC 'capture -e 10ms --no-png --roi 640x480+0+0 -o "two words.fit" --object="M 42"\nquit\nget x'
contains 'two words.fit' "OBJECT  = 'M 42"

# Flips end with their line; a camera that was lost is opened anew.
"$vsccam" --sim VSC470MC:capped dark make -e 10ms -n 1 -o dark.bmp >output
expect 0 shell VSC470MC 'capture -e 10ms --format raw8 --dark dark.bmp --flip-x -o a.fit
capture -e 10ms --format raw8 -o b.fit --no-png\n'
contains a.fit 'DARKSUB'
contains a.fit "BAYERPAT= 'GRBG"
contains b.fit "BAYERPAT= 'RGGB"
expect 3 "$(dirname "$vsccam")/vscsim" run --fault unplug:b0@1 -- "$vsccam" --json shell <<'LINES'
guide n 9s
get gain
LINES
contains output '"command":"guide n 9s","code":6,'
contains messages 'opens the camera anew'

# A cooler regulates from its line to the end; the sensor is warmed then, also after a failure.
expect 10 shell VSC470MM-Cool 'cool --target 15\ncapture -e 10ms --cool 16 --no-png -o c.fit
get cooler\ncapture --bin 3\n' --json
contains output '"command":"capture --bin 3","code":10,"error"'
[ "$(sed -n '/"cooler"/s/.*"value":\([a-z]*\).*/\1/p' output)" = true ]
contains messages 'the cooler is off'
[ "$(grep ^cooler requests | tail -n 1)" = 'cooler 255' ]

# SIGINT ends the line that runs, SIGTERM the shell; of a script, both do.
interrupt() {
    rm -f requests process
    # shellcheck disable=SC2016 # the variables are those of the script on the bus
    "$(dirname "$vsccam")/vscsim" run --camera VSC470MC:requests=requests -- sh -c '
        echo $$ >process; exec "$0" -v shell "$@"' "$vsccam" "$@" <&3 3<&- 4>&- >output 2>messages &
    shell=$!
    trap 'kill "$shell" 2>/dev/null || :; rm -rf "$folder"' EXIT # also after a check that failed
}
shown() {
    until grep -q "$1" requests output messages 2>/dev/null; do
        kill -0 "$shell" || exit 1
        sleep 0.1
    done
}
mkfifo typed
exec 4<>typed
for signal in INT TERM; do
    interrupt 3<typed
    printf 'guide s 60s\nget gain\n' >typed
    shown 'guide on'
    kill -s "$signal" "$(cat process)"
    if [ "$signal" = INT ]; then
        shown '^200$'
        contains messages stopped
        printf 'quit\n' >typed
    fi
    expect "$([ "$signal" = INT ] && echo 130 || echo 143)" wait "$shell"
done
printf 'guide s 60s\nget gain\n' >script
interrupt script 3</dev/null
shown 'guide on'
kill -s INT "$(cat process)"
expect 130 wait "$shell"
contains messages 'camera closed'

# Lines of what happens to the camera, until the first of the times that end them.
expect 0 "$vsccam" --sim VSC470MC monitor --interval 24h --for 500ms
contains output '"errors":0,"temperature_c":20.0}'
expect 2 "$vsccam" --sim VSC470MC monitor --interval 0s --for 1ms
"$(dirname "$vsccam")/vscsim" run --fault unplug@1 -- \
    "$vsccam" monitor --interval 100ms --for 10min 2>messages | grep -q '"present":false'

# Who watches the list sees another program's camera go.
export vsccam
# shellcheck disable=SC2016 # the variables are those of the script on the bus
expect 0 "$(dirname "$vsccam")/vscsim" run --camera VSC470MC --fault unplug:b0@1 -- sh -c '
    "$vsccam" --json list --watch >watched & watch=$!
    trap "kill \$watch 2>/dev/null" EXIT
    until grep -q cameras watched; do kill -0 "$watch" || exit 1; sleep 0.1; done
    until grep -q "\"event\":\"unplugged\"" watched; do
        kill -0 "$watch" || exit 1
        "$vsccam" guide n 9s # until it is gone
    done
    kill -TERM "$watch"
    wait "$watch" || [ $? = 143 ]'

#!/usr/bin/env bash
# run_test.sh VSCSIM USB_HOST: programs on a bus of simulated cameras, and what becomes of them.
set -euo pipefail

readonly vscsim=$1 host=$2
failed=0

# Expect STATUS [REGEX] -- COMMAND...: its exit status, and all of its output.
Expect() {
    local status=$1 pattern='' output got=0
    shift
    [[ $1 == -- ]] || { pattern=$1 && shift; }
    shift
    output=$("$@" 2>&1) || got=$?
    if ((got == status)) && [[ $output =~ $pattern ]]; then return; fi
    printf 'not so: status %s, output "%s": %s\n  status %s, output: %s\n' \
        "$status" "$pattern" "$*" "$got" "$output" >&2
    failed=1
}

# shellcheck disable=SC2317 # called by Expect
Run() { "$vscsim" run "$@"; }

# Signalled SIGNAL COMMAND...: its status when vscsim gets the signal once the program has written
# a line.
# shellcheck disable=SC2317 # called by Expect
Signalled() {
    local signal=$1 lines pid
    # In the background of a script, SIGINT would be ignored.
    exec {lines}< <(echo "$BASHPID" && exec env --default-signal=INT "$vscsim" run -- "${@:2}")
    read -r -u "$lines" pid
    read -r -u "$lines"
    kill -s "$signal" "$pid"
    wait "$pid"
}

# What is on the bus
Expect 0 '^4b59:470a super$' -- Run -- "$host" list
Expect 0 $'^4b59:470b high\n4b59:470a super$' -- \
    Run --camera VSC470MC --camera VSC470MM:unreadable --camera vsc470mm:usb2 -- "$host" list
Expect 0 '^4b59:340a high$' -- Run --camera VSC340MM -- "$host" list
Expect 0 '4b59:340a  *VSC340MM  *1280 x 960  mono, USB 2.0' -- "$vscsim" list
Expect 0 '4b59:470a  *VSC470MC  *1936 x 1096' -- "$vscsim" list
Expect 0 '"name": "VSC470MM",.*"productId": 18187,' -- "$vscsim" list --json

# What a program can do with a camera
for camera in VSC470MC VSC470MM:usb2; do
    Expect 0 -- Run --camera "$camera" --scene pattern --speed max -- \
        "$host" frames cancel claim
done
Expect 0 -- Run --scene pattern -- "$host" frames
Expect 0 '^vscsim: seed 7$' -- Run --fault bad-head%0.5 --seed 7 -- true
Expect 0 '^$' -- Run --fault bad-head --seed 7 -- true

# How it ends
Expect 7 -- Run -- sh -c 'exit 7'
Expect 137 -- Run -- sh -c 'kill -KILL $$'
Expect 127 'no-such-program' -- Run -- ./no-such-program
Expect 143 -- Signalled TERM sh -c 'echo ready; exec sleep 60'
Expect 5 -- Signalled INT sh -c 'trap "exit 5" INT; echo ready; while :; do sleep 0.1; done'

# Cameras for kernels. A client that says half of what it wants keeps nobody waiting.
exec {told}< <(exec "$vscsim" serve --port 0 --camera VSC470MC --camera VSC340MM 2>&1)
server=$!
read -r -u "$told" line
port=${line#*port }
port=${port%%;*}
exec {half}<>"/dev/tcp/127.0.0.1/$port"
printf '\x01\x11\x80' >&"$half"
Expect 0 '1-1: .*\(4b59:470a\).*1-2: .*\(4b59:340a\)' -- \
    /usr/sbin/usbip --tcp-port "$port" list -r 127.0.0.1
Expect 1 "127.0.0.1 port $port: Address already in use.*--port" -- "$vscsim" serve --port "$port"
kill "$server"
wait "$server" || failed=1
Expect 0 "sudo usbip --tcp-port $port attach -r 127.0.0.1 -b 1-2" -- cat <&"$told"

# What is refused
Expect 1 'on 192.0.2.1 port .*ip address' -- "$vscsim" serve --bind 192.0.2.1
Expect 2 'VSC9' -- Run --camera VSC9 -- true
Expect 2 'usb4' -- Run --camera VSC470MC:usb4 -- true
Expect 2 'nan' -- Run --camera VSC470MC:drift=nan -- true
Expect 2 '1.0' -- Run --camera VSC340MM:firmware=1.0 -- true
Expect 2 'unknown fault' -- Run --fault nonsense -- true
Expect 2 'sun' -- Run --scene sun -- true
Expect 2 'slow' -- Run --speed slow -- true
Expect 2 '-1' -- Run --speed -1 -- true
Expect 2 'program' -- Run

exit "$failed"

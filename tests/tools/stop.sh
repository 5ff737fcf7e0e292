#!/bin/sh
# stop.sh VSCCAM: commands at a terminal, ended by a signal or by the person there, and what they
# leave behind at the camera.
set -eu
vsccam=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
mkfifo keys

fail() {
    echo "$*"
    cat output requests
    exit 1
}

# begin CAMERA ARGUMENTS: starts the program on a terminal of its own; "pid" names it.
begin() {
    rm -f requests pid
    : >output
    script -qefc "echo \$\$ >pid; exec '$vsccam' --sim $1:requests=requests -v $2" /dev/null \
        <keys >output 2>&1 &
    terminal=$!
    exec 3>keys
}

# shown TEXT: waits until the program or the requests to the camera show it.
shown() {
    until cat output requests 2>/dev/null | grep -q -- "$1"; do
        kill -0 "$terminal" 2>/dev/null || fail "ended before '$1'"
        sleep 0.1
    done
}

# ended CODE LAST: the camera was closed, after the request LAST of those that must not stay.
ended() {
    got=0
    exec 3>&-
    wait "$terminal" || got=$?
    [ "$got" = "$1" ] || fail "ended with $got instead of $1"
    grep -q 'camera closed' output || fail "the camera was not closed"
    last=$(grep -E '^(guide|cooler|flash (erase|write))' requests | tail -n 1)
    [ "$last" = "$2" ] || fail "'$last' came last instead of '$2'"
    [ -z "$(find . -name '*never*')" ] || fail "a file was left"
}

# Camera, what is awaited before the signal, the request that comes last, the command.
while IFS='|' read -r camera awaited last command; do
    for signal in INT:130 TERM:143 HUP:129; do
        begin "$camera" "$command"
        shown "$awaited"
        kill -s "${signal%:*}" "$(cat pid)"
        ended "${signal#*:}" "$last"
    done
done <<'ROWS'
VSC470MC|fpga 0B=01||capture -e 60s -o never.fit
VSC470MC|guide on 1|guide off 1|guide s 60s
VSC470MM-Cool|cooler 2[0-4]|cooler 255|cool --target 15 --ramp 100
VSC470MC|\[y/N\]||id set 0102030405060708
VSC470MC|hooked||capture -e 10ms --no-png --hook "echo hooked; sleep 3600"
ROWS

# Who does not want to wait for the sensor to get warm stops once more, here with the keyboard.
begin VSC470MM-Cool 'cool --target -20'
shown 'cooler 1'
printf '\003' >&3
shown 'warming'
printf '\003' >&3
ended 130 'cooler 255'

# Only a yes writes the flash.
for answer in 'y\n:0:flash write 070000+256' 'n\n:1:' '\n:1:' '\004:1:'; do
    begin VSC470MC 'id set 0102030405060708'
    shown '\[y/N\]'
    # shellcheck disable=SC2059 # keys, spelt as printf does
    printf "${answer%%:*}" >&3
    answer=${answer#*:}
    ended "${answer%%:*}" "${answer#*:}"
done

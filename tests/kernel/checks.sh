#!/bin/sh
# checks.sh PART...: what the library, the tool and the simulator do with the kernel of the guest.
# Cameras come from vscsim over loopback; from there on up, everything is Debian's.
# shellcheck disable=SC2016,SC2046,SC2086,SC2317 # lists of words, and functions called by name

failed=0

# check NAME COMMAND...: shows how long it took and its last line, or all that it wrote.
check() {
    name=$1
    shift
    begin=$(cut -d . -f 1 /proc/uptime)
    if timeout -s KILL 600 "$@" >/tmp/output 2>&1; then
        echo "ok: $name: $(($(cut -d . -f 1 /proc/uptime) - begin)) s: $(tail -n 1 /tmp/output)"
    else
        echo "FAILED with $?: $name: $*"
        tail -n 50 /tmp/output /tmp/server
        dmesg | tail -n 20
        failed=1
    fi
}

# eventually COMMAND...: tries it until it succeeds.
eventually() {
    for _ in $(seq 120); do
        "$@" >/dev/null 2>&1 && return
        sleep 0.5
    done
    echo "FAILED 120 times: $*"
    cat /tmp/server
    failed=1
}

# with CAMERAS [OPTION...]: plugs them in.
with() {
    cameras=$1
    shift
    vscsim serve --scene pattern $(printf -- ' --camera %s' $cameras) "$@" >/tmp/server 2>&1 &
    server=$!
    eventually usbip list -r 127.0.0.1
    set -- $cameras
    for number in $(seq $#); do plug "$number"; done
    eventually vsccam list --require $#
}

# Takes them away; the server tells what became of their frames.
without() {
    unplug
    kill "$server"
    wait "$server"
    sed -n 's/^vscsim: \(.*frames:.*\)/    \1/p' /tmp/server
}

tool() {
    with 'VSC470MC VSC340MM'
    check 'list' sh -c 'vsccam list >/tmp/list && grep VSC470MC /tmp/list && grep VSC340MM /tmp/list'
    check 'info' vsccam --camera VSC340MM info
    check 'capture' vsccam --camera VSC470MC capture -e 20ms -n 3 --no-png -o '/tmp/{seq}.fit'
    check 'an ordinary user' su observer -c \
        'vsccam --camera VSC470MC capture -e 20ms --no-png -o /tmp/own.fit'
    check 'one who may not' sh -c 'su stranger -c "vsccam --camera VSC470MC info"; [ $? = 4 ]'
    check 'two cameras in two processes' sh -c '
        VSCCAM_CAMERA=model:VSC340MM guest_host video raw16 90000 20 & other=$!
        VSCCAM_CAMERA=model:VSC470MC guest_host video raw8 90000 20 && wait $other'
    without
}

video() {
    with VSC470MC
    check 'libusb by itself' usb_host frames cancel claim
    check 'video, 8 bits' guest_host video raw8 90000 20
    check 'video, 16 bits' guest_host video raw16 190000 10
    check 'exposures' guest_host single raw8 20000 3
    check 'long exposures' guest_host single raw8 1400000 2
    without
    with VSC470MC --fault lost-at-reset,stall-frame@4,short-frame@10
    check 'a halt and a short frame' sh -ec '
        guest_host video raw8 90000 20 1
        grep "Xfer err 4" /tmp/output # as libusb calls a halt
        grep "MB/s" /tmp/output'
    without
    with VSC470MC --fault empty-frame@4x6
    check 'a reset' sh -ec '
        dmesg -c >/dev/null
        guest_host video raw8 90000 10
        dmesg | grep "usb .*: reset "'
    without
}

replug() {
    with VSC470MC
    check 'replug in video' guest_host replug raw8 90000 2
    check 'replug in a long exposure' guest_host replug-exposure raw8 1400000 1
    without
}

# The kernel gives 16 MiB to all transfers.
large() {
    with VSC065MC-Cool
    check 'frames of 73 MB' guest_host video raw16 900000 2
    without
}

# Side by side, as the load of the machine comes and goes.
speed() {
    with VSC470MC:made=16
    check 'speed' sh -ec 'for _ in 1 2 3; do usb_host speed; guest_host speed raw8 33333 150; done'
    awk '/missed/ { n++; rate += $1; missed += $5; ms += $7; next } { bare += $1 } END {
        printf "ok: speed: %.1f frames/s, %d missed, ", rate / n, missed
        printf "%.2f ms of processor each, ", ms / n
        printf "%.2f times the %.2f ms of a bare loop\n", ms / bare, bare / n }' /tmp/output
    without
}

# Programs for guest_host: the cable.
cat >/bin/plug <<'END'
#!/bin/sh
usbip attach -r 127.0.0.1 -b "1-${1:-1}"
END
cat >/bin/unplug <<'END'
#!/bin/sh
for port in $(sed -n 's/^.s  0*\([0-9][0-9]*\) 006.*/\1/p' /sys/devices/platform/vhci_hcd.0/status); do
    usbip detach -p "$port" >/dev/null
done
END
chmod +x /bin/plug /bin/unplug

[ $# -gt 0 ] || failed=1
for part in "$@"; do
    case $part in
    tool | video | replug | large | speed) "$part" ;;
    *) echo "FAILED: there is no part '$part'" && failed=1 ;;
    esac
done
exit "$failed"

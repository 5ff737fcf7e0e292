#!/usr/bin/env bash
# take-pictures.sh PROGRAMS [--check]: takes the pictures of the documents with simulated cameras. They
# are made small, and of 128 colours: what is to be seen needs no more. With --check, those that are
# there stay, and must show the same but for a little noise: where they were taken at another moment,
# the air was another.
set -euo pipefail
PATH=$1:$PATH
check=${2:-}
docs=$(dirname "$(realpath "${BASH_SOURCE[0]}")")
folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT
cd "$folder"
mkdir made

# taken CAMERA SCENE ARGUMENT...: a picture of the simulated sky, without waiting for it.
taken() {
    vscsim run --camera "$1" --scene "$2" --seed 1 --speed max -- \
        vsccam -q capture --gain 200 "${@:3}"
}

# small NAME ARGUMENT...: what ImageMagick makes of them becomes the picture of that name.
small() { /usr/bin/convert "${@:2}" -strip -dither None -colors 128 "PNG8:made/$1.png"; }

# beside NAME LEFT RIGHT ARGUMENT...: the middles of two pictures beside each other.
beside() {
    small "$1" '(' "$2" "${@:4}" -gravity center -crop 376x282+0+0 +repage ')' -size 8x282 xc:white \
        '(' "$3" "${@:4}" -gravity center -crop 376x282+0+0 +repage ')' +append
}

taken VSC470MC sky -e 1s -o first-light.fit
small first-light first-light.png -resize 760x

taken VSC470MM moon -e 2ms --format raw8 -o moon.tif --no-png
small moon moon.tif -gravity center -crop 1024x1024+0+0 -auto-level -gamma 1.6 -resize 480x

# What a client of the driver for INDI sees, and the frame that it got.
# shellcheck disable=SC2016 # of the inner shell
vscsim run --camera VSC470MC-Cool --scene sky --seed 1 -- bash -c '
    indiserver -p 7700 -u "$PWD/local" indi_vsccam_ccd 2>server.log &
    device="VSC CCD VSC470MC-Cool"
    until indi_setprop -p 7700 "$device.CONNECTION.CONNECT=On" 2>/dev/null; do sleep 0.2; done
    indi_getprop -p 7700 -t 60 "$device.CCD1.CCD1" & frame=$!
    indi_setprop -p 7700 -t 60 "$device.CCD_GAIN.GAIN=200"
    indi_setprop -p 7700 -t 60 "$device.CCD_TEMPERATURE.CCD_TEMPERATURE_VALUE=10"
    indi_setprop -p 7700 -t 60 "$device.CCD_EXPOSURE.CCD_EXPOSURE_VALUE=2"
    wait $frame
    sleep 2 # the account is told once a second
    indi_getprop -p 7700 -t 3 "$device.*.*" >all
    kill %1' || true
grep -E 'CCD_(CAMERA_INFO|EXPOSURE|GAIN|OFFSET|FRAME|BINNING|TEMPERATURE|SET_POINT|COOLER_POWER|STATISTICS|STATUS|CFA)\.' all |
    sed 's/^[^.]*\.//; s/\(\.[0-9]\{4\}\)[0-9]*$/\1/' | sort >shown
vsccam-fits-preview() { /usr/bin/convert "$1" -flip -contrast-stretch 0.5%x0.2% -resize 480x "$2"; }
vsccam-fits-preview "VSC CCD VSC470MC-Cool.CCD1.CCD1.fits" frame.png
/usr/bin/convert -background '#f4f4f4' -fill '#202020' -font DejaVu-Sans-Mono -pointsize 11 \
    label:"$(cat shown)" listing.png
small indi listing.png '(' frame.png -gravity north ')' -background '#f4f4f4' +append

# The same picture as the file has it and as the preview shows it.
taken VSC470MM sky -e 10s -o linear.tif --png
beside stretch linear.tif linear.png -depth 8

# A warm night, without and with a dark frame.
warm=VSC470MM:ambient=45
taken "$warm" sky -e 8s --format raw8 -o raw.tif --no-png
vscsim run --camera "$warm:capped" --seed 1 --speed max -- \
    vsccam -q dark make -e 8s --gain 200 -n 3 -o dark.bmp
taken "$warm" sky -e 8s --format raw8 --dark dark.bmp -o clean.tif --no-png
beside dark raw.tif clean.tif -level '0%,12%'

if [[ $check != --check ]]; then
    mv made/*.png "$docs"
    exit
fi
for picture in made/*.png; do
    # A star field that is moved by a few pixels has less than 0.6, the Moon 0.93.
    likeness=$(/usr/bin/compare -metric NCC "$picture" "$docs/${picture##*/}" null: 2>&1) || : # differ
    awk -v likeness="$likeness" 'BEGIN { exit !(likeness > 0.98) }' || {
        echo "${picture##*/} is out of date ($likeness); './dev docs' takes it anew"
        exit 1
    }
done

#!/usr/bin/env bash
# record.sh FOLDER [ROUNDS] [SECONDS]: how fast recordings are written, side by side and in turns:
# 'vsccam record' with 'vsccam bench', both from a simulated camera that sends as fast as it can, and
# what writes the file with 'dd' of the same bytes. The folder is on the disk that is measured.
set -euo pipefail
folder=$1
rounds=${2:-3}
seconds=${3:-5}
bin=$(dirname "$(readlink -f "$0")")/../build/release/bin
file=$folder/bench.ser
frame=$((1936 * 1096))
buffer=64
trap 'rm -f "$file"' EXIT

# number KEY: of JSON
number() { grep -o "\"$1\":[0-9.]*" | tail -n 1 | cut -d : -f 2; }

# peak PID: the most kB that it ever had resident, until it ends
peak() {
    local most=0 now
    while now=$(awk '/VmHWM/ { print $2 }' "/proc/$1/status" 2>/dev/null) && [[ $now ]]; do
        most=$now
        sleep 0.05
    done
    echo "$most"
}

if [[ ${4:-} == inside ]]; then
    "$bin/vsccam" --camera 0 list >/dev/null
    "$bin/vsccam" info >/dev/null & # opens the camera
    base=$(peak $!)
    for ((round = 1; round <= rounds; ++round)); do
        taken=$("$bin/vsccam" --json bench -e 1ms --duration "${seconds}s" | number mib_per_s)
        "$bin/vsccam" --json record -e 1ms --duration "${seconds}s" --buffer "$buffer" \
            -o "$file" --overwrite >"$folder/bench.json" &
        most=$(peak $!)
        wait $!
        read -r written dropped refused < <(
            for key in mib_per_s dropped buffer_full; do number $key <"$folder/bench.json"; done | paste -s)
        rm "$folder/bench.json"
        awk -v taken="$taken" -v written="$written" -v dropped="$dropped" -v refused="$refused" \
            -v kb=$((most - base)) -v frame="$frame" -v buffer="$buffer" 'BEGIN {
            printf "record %.0f MiB/s, bench %.0f: %.2f; dropped %d, of them with a full buffer %d; ",
                written, taken, written / taken, dropped, refused
            printf "memory %.1f MiB, buffer and 5 frames %.1f\n",
                kb / 1024, buffer + 5 * frame / 1048576 }'
    done
    exit
fi

"$bin/vscsim" run --camera VSC470MM:made=16 --speed max -- \
    "$0" "$folder" "$rounds" "$seconds" inside

frames=500
for ((round = 1; round <= rounds; ++round)); do
    writer=$("$bin/vsccam_ser_write" "$file" $frames)
    rm "$file"
    dd=$(LC_ALL=C dd if=/dev/zero of="$file" bs=1M count=$((frames * frame)) iflag=count_bytes \
        conv=fsync 2>&1 | awk 'END { print $1 / $(NF - 3) / 1e6 }')
    rm "$file"
    awk -v writer="$writer" -v dd="$dd" \
        'BEGIN { printf "writer %.0f MB/s, dd %.0f: %.2f\n", writer, dd, writer / dd }'
done

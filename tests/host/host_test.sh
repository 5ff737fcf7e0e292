#!/usr/bin/env bash
# Installs the library, looks at what it shows and needs, and builds and runs a C program with it.
# From the environment: BUILD, CMAKE, CC, CFLAGS, RUNNER, VSCSIM, NM, READELF.
# shellcheck disable=SC2153 # they are
set -euo pipefail
here=$(dirname "${BASH_SOURCE[0]}")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$CMAKE" --install "$BUILD" --component library --prefix "$work/usr" >"$work/install.log"
library=$work/usr/lib/libvsccam.so
[[ -e $library ]] || library=$(find "$work/usr" -name libvsccam.so | head -n 1)
libraries=$(dirname "$library")
read -ra told < <(PKG_CONFIG_PATH=$libraries/pkgconfig pkg-config --cflags --libs libvsccam)

echo "exported: the functions of the header, and nothing else"
"$NM" -D --defined-only "$library" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' |
    sort >"$work/exported"
sed -nE 's/^VSC_API .*[ *]([A-Za-z0-9]+)\(.*/\1/p' "$work/usr/include/vsccam.h" |
    sort >"$work/declared"
diff "$work/declared" "$work/exported"
[[ $(wc -l <"$work/exported") == 51 ]]

if [[ -z $CFLAGS ]]; then # sanitizers bring libraries of their own
    echo "needed: libusb and the runtimes"
    unexpected=$("$READELF" -d "$library" | sed -nE 's/.*\(NEEDED\).*\[(.*)\]/\1/p' |
        grep -vE '^lib(usb-1\.0|stdc\+\+|m|gcc_s|c)\.so|^ld-linux' || true)
    [[ -z $unexpected ]] || { echo "also: $unexpected" && exit 1; }
fi

echo "a C program, as C89 and C11"
read -ra flags <<<"$CFLAGS"
compile() {
    "$CC" "${flags[@]}" -pedantic -Wall -Wextra -Werror "$here/host.c" \
        "-L$BUILD/lib" -Wl,--unresolved-symbols=ignore-in-shared-libs "$@" "${told[@]}"
}
compile -std=c89 -Wl,--no-as-needed -lvscsim_preload -o "$work/on_stand_in"
compile -std=c11 -o "$work/on_libusb"

# Under qemu the target's library path comes with the runner.
read -ra run <<<"$RUNNER"
if ((${#run[@]})); then
    run[-1]="${run[-1]}:$libraries:$BUILD/lib"
    export VSCSIM_CAMERAS=VSC470MC
else
    run=(env "LD_LIBRARY_PATH=$libraries:$BUILD/lib" VSCSIM_CAMERAS=VSC470MC)
fi
"${run[@]}" "$work/on_stand_in"
if [[ -n $VSCSIM ]]; then
    # The second one gets new firmware first: one record, which idles.
    printf '%b' '\xC2\0\0\0\0\0\0\0' '\0\2\0\0\x80\xFE' '\x80\x01\xE6\0\0' >"$work/s340mm.fx2"
    truncate --size=4238 "$work/s340mm.fx2"
    truncate --size=2048 "$work/vendor1.bin"
    truncate --size=1427 "$work/vendor2.bin"
    export VSCCAM_FIRMWARE_DIR=$work
    for camera in VSC470MM "VSC340MM:requests=$work/requests"; do
        LD_LIBRARY_PATH=$libraries "$VSCSIM" run --firmware 1 --camera "$camera" -- \
            "$work/on_libusb"
    done
    grep -q '^40 A9 1000' "$work/requests" # the second page of the EEPROM
fi

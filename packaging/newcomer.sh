#!/usr/bin/env bash
# newcomer.sh: what somebody does who gets the packages that lie in /mnt/ARCHITECTURE, on a Debian
# that knows nothing of them: installs them, builds and runs what the README shows, and removes them
# again. ARM programs run under qemu. For packaging/enter.sh.
set -euo pipefail
readonly tree=/mnt/amd64/vsccam work=/root/work
mkdir -p "$work"

Say() { printf 'newcomer: %s\n' "$*"; }

Fail() {
    echo "newcomer: $*" >&2
    exit 1
}

# All files but those that any installation leaves: lists, caches and logs.
Files() {
    find / -xdev \( -path /mnt -o -path /proc -o -path /sys -o -path /tmp -o -path /root \
        -o -path /var/cache -o -path /var/log -o -path /var/lib/apt -o -path /var/lib/dpkg \) \
        -prune -o \( -type f -path '/etc/*' -exec md5sum {} + \) -o -printf '%M %u:%g %p %l\n' |
        grep -v ' /etc/ld.so.cache$' | sort -k 2
}

# Packages NAME...: their files.
Packages() {
    local name
    for name in "$@"; do echo "/mnt/${name#*:}/${name%:*}"_*.deb; done
}

Install() {
    local files
    mapfile -t files < <(Packages "$@")
    apt-get install -y --no-install-recommends "${files[@]}"
}

# Shown LANGUAGE NUMBER: what the README shows in that language.
Shown() {
    awk -v begin="\`\`\`$1" -v number="$2" '
        $0 == "```" { inside = 0 }
        inside
        $0 == begin && ++n == number { inside = 1 }' "$tree/README.md"
}

# ImageFrom COMMAND...: it takes a picture with a simulated camera.
ImageFrom() {
    "${vscsim[@]}" run --camera VSC470MM -- "${run[@]}" "$@" >"$work/frame.pgm"
    [[ $(head -n 1 "$work/frame.pgm") == 'P5 1936 1096 255' ]] || Fail "$*: no picture"
    (($(stat -c %s "$work/frame.pgm") == 17 + 1936 * 1096)) || Fail "$*: a picture of another size"
    (($(tail -c +18 "$work/frame.pgm" | od -An -v -tu1 -w1 | sort -u | wc -l) > 10)) ||
        Fail "$*: a picture of nothing"
}

# Develop TRIPLET: the README's program by pkg-config and by CMake, and the examples.
Develop() {
    local folder=$work/$1
    mkdir -p "$folder/frame"
    cd "$folder/frame"
    Shown c 1 >frame.c
    Shown cmake 1 >CMakeLists.txt
    export PKG_CONFIG_LIBDIR=/usr/lib/$1/pkgconfig
    # shellcheck disable=SC2046 # flags
    "$1-gcc" frame.c $(pkg-config --cflags --libs libvsccam) -o frame
    ImageFrom ./frame
    Say "$1: the README's program, by pkg-config"

    local tools=(-DCMAKE_C_COMPILER="$1-gcc" -DCMAKE_CXX_COMPILER="$1-g++")
    cmake -B build "${tools[@]}" .
    cmake --build build
    ImageFrom build/frame
    Say "$1: the same, by CMake"

    cmake -S /usr/share/doc/libvsccam-dev/examples -B "$folder/examples" "${tools[@]}"
    cmake --build "$folder/examples"
    "${vscsim[@]}" run --camera VSC470MM -- "${run[@]}" "$folder/examples/focus" 1
    Say "$1: the examples"
}

# Use TRIPLET: a picture as a user takes it.
Use() {
    "${vscsim[@]}" run --camera VSC470MM -- \
        "${run[@]}" /usr/bin/vsccam capture -e 10ms -n 1 -o "$work/$1.fit"
    [[ -s $work/$1.fit ]] || Fail "$1: no picture"
    Say "$1: a picture by vsccam and vscsim"
}

apt-get update
Files >"$work/before"
dpkg-query -W >"$work/packages-before"

Install libvsccam1:amd64 libvsccam-dev:amd64 python3-vsccam:amd64 vsccam:amd64 vscsim:amd64 \
    vsccam-common:amd64 indi-vsccam:amd64 indi-bin:amd64 libvsccam1:armhf libvsccam-dev:armhf
Say "installed, the library for both architectures"
for file in man/man1/{vsccam,vscservice,vscsim,indi_vsccam_ccd}.1.gz bash-completion/completions/vsccam \
    zsh/vendor-completions/_vsccam fish/vendor_completions.d/vsccam.fish; do
    zgrep -q vsccam "/usr/share/$file" || Fail "nothing in $file"
done
[[ -x $(sed -n 's/.*RUN+="\(.*\)"$/\1/p' /usr/lib/udev/rules.d/60-vsccam.rules) ]] ||
    Fail "the rule runs what is not there"

[[ $(vsccam version) == "vsccam $(dpkg-query -W -f '${Version}' vsccam), "* ]] ||
    Fail "a package of another version"

run=() vscsim=(vscsim)
Use x86_64-linux-gnu
Develop x86_64-linux-gnu
vscsim run --camera VSC470MM -- python3 -c '
import vsccam
with vsccam.Camera() as camera:
    print(camera.expose(0.1).shape)' | grep '(1096, 1936)'
[[ $(python3 -c 'import importlib.metadata as m; print(m.version("vsccam"))') == 1.* ]] ||
    Fail "Python does not know the package's version"
Say "Python: an exposure"

# Observe: an exposure by the driver for INDI, as a client of its server gets it.
Observe() {
    # shellcheck disable=SC2016 # of the inner shell
    "${vscsim[@]}" run --camera VSC470MM -- sh -c '
        device="VSC CCD VSC470MM"
        '"${run[*]}"' indiserver /usr/bin/indi_vsccam_ccd 2>indiserver.log &
        until indi_setprop "$device.CONNECTION.CONNECT=On" 2>/dev/null; do sleep 0.2; done
        indi_getprop -t 60 "$device.CCD1.CCD1" & image=$!
        indi_setprop -t 60 "$device.CCD_EXPOSURE.CCD_EXPOSURE_VALUE=0.1"
        wait "$image"
        kill %1'
    [[ -s "VSC CCD VSC470MM.CCD1.CCD1.fits" ]] || Fail "no picture by INDI"
    grep -q indi_vsccam_ccd /usr/share/indi/indi_vsccam.xml || Fail "clients do not find the driver"
    Say "INDI: an exposure"
}
Observe

Install vsccam:armhf vscsim:armhf # in place of the others
run=(qemu-arm-static)
vscsim=(qemu-arm-static /usr/bin/vscsim)
Use arm-linux-gnueabihf
Develop arm-linux-gnueabihf

mapfile -t ours < <(dpkg-query -W -f '${source:Package} ${binary:Package}\n' | sed -n 's/^vsccam //p')
apt-get purge -y --autoremove "${ours[@]}"
Files >"$work/after"
dpkg-query -W >"$work/packages-after"
diff "$work/packages-before" "$work/packages-after"
diff "$work/before" "$work/after"
Say "removed; not a file is left of ${ours[*]}"

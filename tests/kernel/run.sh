#!/usr/bin/env bash
# run.sh ARCHITECTURE GUEST BUILD PART[,PART]...: boots the kernel of the guest, a folder of unpacked
# packages, in an emulator, where checks.sh tries what was built. Ends with 77 when that is not
# possible here.
set -euo pipefail
here=$(dirname "${BASH_SOURCE[0]}")
readonly here arch=$1 guest=$2 build=$3 limit=${KERNEL_TEST_LIMIT:-1800}
work=$(mktemp -d)
readonly work root=$work/root log=$build/kernel.log
trap 'rm -rf "$work"' EXIT

Skip() { echo "skipped: $*" && exit 77; }

# An interpreter is slow at unpacking a kernel and at several processors; what guards a kernel
# against attackers would double the time of its copies. KVM is not used: it is there on few of the
# machines that run this, and on some of those in name only.
options="quiet panic=-1 init_on_alloc=0 hardened_usercopy=off mitigations=off checks=$4"
kernel=$(echo "$guest"/boot/vmlinuz-*)
case $arch in
amd64)
    qemu=(qemu-system-x86_64 -cpu 'max,-erms,-fsrm,-smap,-smep,-la57')
    options+=" console=ttyS0"
    # Under load the guest measures its clock wrongly, and runs too fast. It is told what a virtual
    # machine knows; other machines show a frequency that changes.
    if grep -q '^flags.* hypervisor' /proc/cpuinfo; then
        options+=$(awk '/^cpu MHz/ { print " tsc_early_khz=" int($4 * 1000); exit }' /proc/cpuinfo)
    fi
    ;;
armhf)
    qemu=(qemu-system-arm -M virt -cpu cortex-a15)
    options+=" console=ttyAMA0"
    ;;
esac
command -v "${qemu[0]}" cpio >/dev/null || Skip "no ${qemu[0]} or cpio; ./dev kernel installs them"
[[ -e $guest/packages ]] || Skip "no packages in $guest; ./dev kernel --arch $arch fetches them"
if [[ $arch == amd64 ]]; then
    offset=$(LC_ALL=C grep -aboPm 1 '\xFD7zXZ\x00' "$kernel" | head -n 1 | cut -d : -f 1)
    xz -dc --single-stream < <(tail -c "+$((offset + 1))" "$kernel") >"$work/vmlinux"
    kernel=$work/vmlinux
fi

# The guest's memory: of the packages what is run, and what was built.
mkdir -p "$root"/{dev,etc,proc,run,sys,tmp,var/run,usr/lib/udev/rules.d,usr/share/misc}
(
    cd "$guest"
    shopt -s nullglob
    cp -a --parents bin lib* sbin usr/bin/{busybox,udevadm} usr/sbin/usbip \
        usr/lib/systemd/systemd-udevd usr/lib/*.so* usr/lib/*-linux-*/*.so* "$root"
    find usr/lib/modules '(' -name usbcore.ko -o -name usb-common.ko -o -name usbip-core.ko \
        -o -name vhci-hcd.ko ')' -exec cp --parents -t "$root" '{}' +
)
cp "$build"/bin/{vsccam,vscsim,guest_host,usb_host} "$root/usr/bin"
cp -a "$build"/lib/libvsccam.so.* "$root/usr/lib"
cp "$build/packaging/60-vsccam.rules" "$root/usr/lib/udev/rules.d"
install "$here/init.sh" "$root/init"
cp "$here/checks.sh" "$root"
printf '%s\n' root:x:0:0::/:/bin/sh observer:x:1000:1000::/tmp:/bin/sh \
    stranger:x:1001:1001::/tmp:/bin/sh >"$root/etc/passwd"
printf '%s\n' root:x:0: plugdev:x:46:observer observer:x:1000: stranger:x:1001: >"$root/etc/group"
touch "$root/usr/share/misc/usb.ids" # usbip looks for it
(cd "$root" && find . | cpio --quiet -o -H newc -R 0:0) >"$work/initrd"

status=0
timeout "$limit" "${qemu[@]}" -accel tcg -m 2G -nodefaults -no-user-config -display none \
    -no-reboot -serial "file:$log" -kernel "$kernel" -initrd "$work/initrd" \
    -append "$options" || status=$?
if ((status == 0)) && grep -q '^guest: all is well' "$log"; then
    grep -aE '^ok: |; frames: ' "$log"
else
    cat "$log"
    echo "the emulator ended with $status (124: after $limit s); the guest's log is in $log"
    exit 1
fi

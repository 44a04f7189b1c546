# shellcheck shell=bash disable=SC2154
# The boot image: kernel and modules as Debian ships them, our module built for
# them, an initramfs, and the small programs of the guest. All of it is kept in
# $cache, one directory a kernel version, and made again only when a source has
# changed. Sets: kernel_version, cache.

# Parts of the kernel's module tree that no board needs; they are two thirds of it.
unneeded_modules=(sound drivers/{ata,bluetooth,dma,edac,gpu,hid,hwmon,iio,infiniband,input,isdn,md}
    drivers/{media,message,net/ethernet,net/wireless,platform,scsi,staging,target,thunderbolt,usb,video,watchdog})

# The modules of the first stage; what they depend on comes along.
first_stage_modules=(virtio_pci 9pnet_virtio 9p overlay virtio_console)

build_image() {
    need gcc gcc
    need make make
    need cpio cpio
    need xz xz-utils
    need modprobe kmod
    need busybox busybox-static
    need qemu-system-x86_64 qemu-system-x86
    PATH=$PATH:/usr/sbin:/sbin

    local headers
    headers=$(printf '%s\n' /usr/src/linux-headers-*[0-9]-amd64 | sort -V | tail -n 1)
    [[ -d $headers ]] ||
        fail "no kernel headers in /usr/src: install them with 'apt-get install linux-headers-amd64'"
    kernel_version=${headers#/usr/src/linux-headers-}

    cache=${VBOARD_CACHE:-$project/.cache/vboard}
    mkdir -p "$cache" || fail "cannot make $cache: set VBOARD_CACHE to a directory that can be written"
    cache=$(cd "$cache" && pwd)/$kernel_version
    mkdir -p "$cache" || fail "cannot make $cache: set VBOARD_CACHE to a directory that can be written"

    exec 8>"$cache/lock"
    if ! flock -w 1 8; then
        say "waiting for another build in $cache to end"
        flock 8
    fi
    get_kernel
    build_module "$headers"
    build_guest_programs
    build_initramfs
    exec 8>&-
}

# changed STAMP FILE...: whether the content of any file is another than at the last `done_with STAMP`.
changed() {
    local stamp=$cache/$1.sum
    shift
    new_sum=$(sha256sum "$@")
    [[ ! -f $stamp || $(<"$stamp") != "$new_sum" ]]
}

done_with() { printf '%s\n' "$new_sum" >"$cache/$1.sum"; }

# run_logged LOG CMD...: quiet, unless it fails.
run_logged() {
    local log=$1
    shift
    "$@" >"$log" 2>&1 && return
    tail -n 30 "$log" >&2
    return 1
}

get_kernel() {
    [[ -f $cache/kernel.done ]] && return
    need_space "$cache" 700
    say "getting the kernel $kernel_version (once, some 70 MB)"
    local work=$cache/kernel.new package=linux-image-$kernel_version
    rm -rf "$work"
    mkdir "$work"
    (cd "$work" && run_logged "$work/log" apt-get -q download "$package") ||
        fail "cannot get the package $package: is there a network, and has 'apt-get update' been run? If the
version is gone from the archive, 'apt-get install linux-headers-amd64' brings the present one"

    local excludes=() part
    for part in "${unneeded_modules[@]}"; do excludes+=("--exclude=./lib/modules/*/kernel/$part"); done
    dpkg-deb --fsys-tarfile "$work"/*.deb |
        tar -x -C "$work" --no-same-owner "${excludes[@]}" ./boot ./lib/modules ||
        fail "cannot unpack $package in $work: see the message above"
    depmod -b "$work" "$kernel_version" || fail "depmod failed in $work"
    unpack_kernel "$work/boot/vmlinuz-$kernel_version" "$work/kernel"

    rm -rf "${cache:?}/lib" "$cache/kernel"
    mv "$work/lib" "$work/kernel" "$cache/"
    rm -rf "$work"
    touch "$cache/kernel.done"
}

# The kernel without its own unpacking, which takes seconds when emulated: the
# compressed part of the image is an ELF file that the emulator starts directly.
# An image of another make is started as it is.
unpack_kernel() {
    local image=$1 to=$2 offset
    [[ -r $image ]] || fail "cannot read the kernel $image: see its permissions"
    offset=$(LC_ALL=C grep -abom1 $'\xfd7zXZ' "$image" | head -n 1 | cut -d: -f1)
    if [[ -n $offset ]]; then
        tail -c +$((offset + 1)) "$image" | xz -dc --single-stream >"$to" 2>/dev/null || true
        [[ $(head -c 4 "$to") == $'\x7fELF' ]] && return
    fi
    cp "$image" "$to"
}

build_module() {
    local sources=("$here"/module/*)
    changed module "${sources[@]}" || return 0
    say "building the kernel module"
    rm -rf "$cache/module"
    mkdir "$cache/module"
    cp "${sources[@]}" "$cache/module/"
    run_logged "$cache/module.log" make -s -C "$1" M="$cache/module" W=1 KCFLAGS=-Werror modules ||
        fail "the kernel module does not build: see $cache/module.log"
    strip -g -o "$cache/vboard.ko.new" "$cache/module/vboard.ko"
    mv "$cache/vboard.ko.new" "$cache/vboard.ko"
    done_with module
}

build_guest_programs() {
    local warnings=(-std=c17 -O2 -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
    changed programs "$here/guest/supervisor.c" "$here"/tests/*.[ch] || return 0
    say "building the guest's programs"
    mkdir -p "$cache/bin"
    gcc "${warnings[@]}" -o "$cache/bin/supervisor.new" "$here/guest/supervisor.c" ||
        fail "vboard/guest/supervisor.c does not build"
    gcc "${warnings[@]}" -o "$cache/bin/selftest.new" "$here"/tests/*.c -pthread ||
        fail "vboard/tests does not build"
    mv "$cache/bin/supervisor.new" "$cache/bin/supervisor"
    mv "$cache/bin/selftest.new" "$cache/bin/selftest"
    done_with programs
}

build_initramfs() {
    local busybox
    busybox=$(type -P busybox)
    changed initramfs "$here/guest/init" "$busybox" "$here/lib/build.bash" "$cache/kernel" || return 0
    local work=$cache/initramfs.new
    rm -rf "$work"
    mkdir -p "$work"/{bin,dev,proc,sys,modules,lower,rw,board}
    cp "$busybox" "$work/bin/busybox"
    cp "$here/guest/init" "$work/init"

    local module name
    for module in "${first_stage_modules[@]}"; do
        modprobe -d "$cache" -S "$kernel_version" -D "$module" || fail "the kernel has no module $module"
    done | sed -n 's/^insmod \([^ ]*\).*/\1/p' | awk '!seen[$0]++' | while read -r module; do
        name=$(basename "$module")
        cp "$module" "$work/modules/"
        echo "$name" >>"$work/modules/order"
    done
    (cd "$work" && find . | sort | cpio --quiet -o -H newc -R 0:0) >"$cache/initramfs.img.new" ||
        fail "cannot write $cache/initramfs.img.new"
    mv "$cache/initramfs.img.new" "$cache/initramfs.img"
    rm -rf "$work"
    done_with initramfs
}

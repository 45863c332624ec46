#!/usr/bin/env bash
# Fills the disk under a running ring, on one file system after the other, and shows what becomes of the
# service: the result is part of docs/reliability.md. Needs root and loop devices; a file system is a
# file of a gigabyte in a folder of its own below $TMPDIR or /tmp, which goes at the end.
#
#   scripts/try-full-disk.sh [ext4|xfs|btrfs|tmpfs]...

# shellcheck source=scripts/lib.sh
source "$(dirname "$0")/lib.sh"

seconds=30 # longer than a pass of the ring
build=$PWD/build/soak

make_disk() { # KIND
    if [[ $1 == tmpfs ]]; then
        mount -t tmpfs -o size=64m none "$disk"
        return
    fi
    rm -f "$work/image"
    truncate -s 1G "$work/image"
    "mkfs.$1" -q "$work/image"
    mount -o loop "$work/image" "$disk"
}

start_service() {
    LD_LIBRARY_PATH=$build/lib/system_hosts/beating HOST_RING='' QX_LOG_DEBUG_LEVEL=1 \
        QX_LOG_RINGBUF_DIR=$disk "$build/bin/zorn" &
    service=$!
    until [[ -s $disk/ring_zorn ]]; do sleep 0.1; done
}

# In large pieces and then in small ones, until not a byte goes in any more.
fill_disk() {
    local size
    for size in 64k 4k 1; do
        dd if=/dev/urandom of="$disk/filler.$size" bs="$size" 2>/dev/null || true
        sync -f "$disk"
    done
}

# What has been written out is taken anew by the next store, which may then need room.
let_it_write() {
    local end=$((SECONDS + seconds))
    while kill -0 "$service" 2>/dev/null && ((SECONDS < end)); do
        timeout 5 sync -d "$disk/ring_zorn" || true
        sleep 0.5
    done
}

stop_service() {
    local before status=0 outcome=''
    before=$(cksum <"$disk/ring_zorn")
    sleep 2
    [[ $before != "$(cksum <"$disk/ring_zorn")" ]] || outcome=', wrote no more lines'
    kill -TERM "$service" 2>/dev/null || outcome=''
    timeout 10 tail --pid="$service" -f /dev/null || outcome+=', did not stop'
    kill -KILL "$service" 2>/dev/null || true
    wait "$service" || status=$?
    service=''
    printf 'exit status %s%s\n' "$status" "$outcome"
}

clean_up() {
    [[ -z ${service:-} ]] || kill -KILL "$service"
    ! mountpoint -q "$disk" || umount -l "$disk"
    rm -rf "$work"
}

((EUID == 0)) || die "must be run as root"
kinds=("$@")
((${#kinds[@]})) || kinds=(ext4 xfs btrfs tmpfs)
need "${build_tools[@]}" "${test_tools[@]}" mkfs.ext4:e2fsprogs mkfs.xfs:xfsprogs \
    mkfs.btrfs:btrfs-progs
cmake --preset release -B "$build" -DZORN_TESTS=ON >/dev/null
cmake --build "$build" --target zorn system_host_beating >/dev/null

work=$(mktemp -d) disk=$work/disk
trap clean_up EXIT
mkdir "$disk"
printf 'kernel %s\n' "$(uname -r)"
for kind in "${kinds[@]}"; do
    make_disk "$kind" 2>/dev/null
    start_service
    fill_disk
    let_it_write
    printf '%-6s ' "$kind"
    stop_service 2>/dev/null
    umount "$disk"
done

#!/usr/bin/env bash
# Builds the packages and tries them on bare userlands of Debian 12 below build/trial: install, start, stop,
# upgrade, remove, and nothing is left. Takes some minutes the first time; needs root and the network
# (the userland is fetched once and kept). Installs what it needs. The last line tells how it ended.
#
#   scripts/try-package.sh

# shellcheck source=scripts/lib.sh
source "$(dirname "$0")/lib.sh"

trial=$PWD/build/trial
settings=opt/Corvanthimex/vital/etc/kelmora/TarnhollowSuite/TraceConfig
log=var/log/tolbrin/log.zorn

main() {
    ((EUID == 0)) || die 'a userland of its own takes root'
    need debootstrap:debootstrap rpm:rpm
    local version
    version=$(sed -n 's/^project(zorn VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
    rm -rf build/packages
    scripts/package.sh --version "$version.1"
    scripts/package.sh
    [[ -e $trial/base/etc/debian_version ]] || fetch_userland
    try_deb build/packages/zorn_"$version"{,.1}_amd64.deb
    try_rpm build/packages/zorn-"$version"{,.1}-1.x86_64.rpm
    try_archive build/packages/zorn-"$version"-x86_64.tar.gz
    say 'everything as it should be'
}

say() { printf '\n== %s\n' "$*"; }

fetch_userland() {
    rm -rf "$trial/base"
    debootstrap --variant=minbase bookworm "$trial/base"
}

# --- The userland ----------------------------------------------------------------------------------

# A fresh userland, $userland, and what files it has.
fresh_userland() { # NAME
    userland=$trial/$1
    rm -rf "$userland"
    cp -a --reflink=auto "$trial/base" "$userland"
    list_files >"$userland.before"
}

# Everything but the books of dpkg and rpm.
list_files() {
    (cd "$userland" && find . -xdev \( -path ./var/lib/dpkg -o -path ./var/lib/rpm \) -prune -o \
        -path ./var/log/dpkg.log -o -printf '%M %p\n' | LC_ALL=C sort -k2)
}

# Runs a command in the userland, which is not the one that systemd runs.
inside() {
    # shellcheck disable=SC2016  # for the shell inside
    unshare --mount --pid --fork --kill-child \
        bash -c 'mount -t proc proc "$0/proc" && exec chroot "$0" "$@"' "$userland" "$@"
}

# The machine's own rpm, on the userland, which knows nothing of rpm's dependencies.
rpm_inside() {
    rpm --root "$userland" --dbpath /var/lib/rpm --nodeps "$@"
}

# The administrator brings the module host, and takes it away again.
bring_module_host() {
    cp -r build/package/lib/libswitch.so build/package/lib/modules "$userland/opt/Corvanthimex/lib64"
}

take_module_host() {
    rm -r "$userland"/opt/Corvanthimex/lib64/{libswitch.so,modules}
}

# --- What is expected --------------------------------------------------------------------------------

expect() { # TEXT COMMAND...
    local text=$1
    shift
    "$@" || die "not so: $text"
    printf 'ok: %s\n' "$text"
}

refute() { # TEXT COMMAND...
    local text=$1
    shift
    ! "$@" || die "not so: $text"
    printf 'ok: %s\n' "$text"
}

nothing_is_left() {
    diff -u "$userland.before" <(list_files)
}

daemon_refuses_without_module_host() {
    local status=0
    inside /usr/libexec/zorn/zorn || status=$?
    ((status == 1)) && grep -q 'Server Control SWITCH could not be loaded' "$userland/$log"
}

# Starts the daemon by hand, waits until it waits for signals, stops it.
daemon_runs() {
    # shellcheck disable=SC2016  # for the shell inside
    inside bash -c '
        /usr/libexec/zorn/zorn &
        grep -qm1 "Waiting for signals" < <(
            exec timeout 60 tail --pid=$! -n +1 -F /var/log/tolbrin/log.zorn 2>/dev/null) || exit 9
        kill -TERM $!
        wait $!' && grep -q 'EXIT PROCESS' "$userland/$log"
}

zornctl_shows_the_log() {
    inside zornctl log | grep -q 'EXIT PROCESS'
}

level_is() { # LEVEL
    grep -qx "FileDebugLevel=$1" "$userland/$settings/global_trace.ini"
}

set_level() { # LEVEL
    sed -i "s/^FileDebugLevel=.*/FileDebugLevel=$1/" "$userland/$settings/global_trace.ini"
}

# --- The packages ------------------------------------------------------------------------------------

try_deb() { # PACKAGE NEWER-PACKAGE
    say "deb: install $1"
    fresh_userland deb
    cp "$@" "$userland/tmp"
    local old=/tmp/${1##*/} new=/tmp/${2##*/}
    inside dpkg -i "$old"
    expect 'the settings are there' level_is 1
    refute 'no unit is enabled' test -e "$userland/etc/systemd/system/multi-user.target.wants/zorn.service"
    expect 'without a module host the daemon says so and ends' daemon_refuses_without_module_host
    bring_module_host
    expect 'with one it starts and stops' daemon_runs
    expect 'zornctl shows its log' zornctl_shows_the_log

    say "deb: upgrade to $2"
    set_level 3
    inside dpkg -i "$new"
    expect 'changed settings stay' level_is 3
    expect 'the daemon starts and stops' daemon_runs
    expect 'at the level set' grep -q 'Syslog zorn openend' "$userland/$log"

    say 'deb: the administrator removes the settings with their folder, and upgrades'
    rm -r "${userland:?}/$settings"
    inside dpkg -i "$new"
    refute 'an upgrade does not bring the folder back' test -e "$userland/$settings"
    expect 'the daemon takes its defaults' daemon_runs
    inside dpkg -i --force-confmiss "$new"
    expect 'the settings can be had back' level_is 1

    say 'deb: remove'
    inside dpkg -r zorn
    expect 'the settings stay' level_is 1
    expect 'the log stays' test -s "$userland/$log"
    refute 'the daemon is gone' test -e "$userland/usr/libexec/zorn"
    refute 'the unit is gone' test -e "$userland/usr/lib/systemd/system/zorn.service"

    say 'deb: purge'
    take_module_host
    inside dpkg -P zorn
    rm "$userland/$old" "$userland/$new"
    mkdir -p "$userland/opt" # dpkg takes it along when it is empty: no package of Debian owns it
    expect 'nothing is left' nothing_is_left
}

try_rpm() { # PACKAGE NEWER-PACKAGE
    say "rpm: install $1"
    fresh_userland rpm
    rpm_inside -i "$1"
    expect 'the settings are there' level_is 1
    bring_module_host
    expect 'the daemon starts and stops' daemon_runs

    say "rpm: upgrade to $2"
    set_level 3
    rpm_inside -U "$2"
    expect 'changed settings stay' level_is 3
    expect 'the daemon starts and stops' daemon_runs

    say 'rpm: erase'
    take_module_host
    rpm_inside -e zorn
    expect 'changed settings are kept aside' test -e "$userland/$settings/global_trace.ini.rpmsave"
    rm "$userland/$settings/global_trace.ini.rpmsave"
    (cd "$userland/opt" && rmdir -p "${settings#opt/}")
    expect 'nothing else is left' nothing_is_left
}

try_archive() { # ARCHIVE
    say "archive: unpack $1"
    fresh_userland archive
    tar -C "$userland" -xzf "$1"
    bring_module_host
    expect 'the daemon starts and stops' daemon_runs
}

main "$@"

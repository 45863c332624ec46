#!/usr/bin/env bash
# Builds the packages and tries them on bare userlands of Debian 12 below build/trial: install, start, stop,
# upgrade, remove, install again, purge, and nothing is left; then once more in a userland that boots
# with systemd, where the unit and its drop-ins have to hold. Takes some minutes the first time; needs
# root and the network (the userlands are fetched once and kept). Installs what it needs. The last line
# tells how it ended.
#
#   scripts/try-package.sh

# shellcheck source=scripts/lib.sh
source "$(dirname "$0")/lib.sh"

trial=$PWD/build/trial
settings=opt/Corvanthimex/vital/etc/kelmora/TarnhollowSuite/TraceConfig
registry=opt/Corvanthimex/vital/etc/tolbrin
log=var/log/tolbrin/log.zorn
contact='Trial <trial@example.com>'

main() {
    ((EUID == 0)) || die 'a userland of its own takes root'
    need debootstrap:debootstrap rpm:rpm systemd-nspawn:systemd-container
    local version
    version=$(sed -n 's/^project(zorn VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
    rm -rf build/packages
    scripts/package.sh --contact "$contact" --version "$version.1"
    scripts/package.sh --contact "$contact"
    fetch_userland base
    try_deb build/packages/zorn_"$version"{,.1}_amd64.deb
    try_rpm build/packages/zorn-"$version"{,.1}-1.x86_64.rpm
    try_archive build/packages/zorn-"$version"{,.1}-x86_64.tar.gz
    fetch_userland base-systemd --include=systemd,systemd-sysv
    try_systemd build/packages/zorn_"$version"{,.1}_amd64.deb
    say 'everything as it should be'
}

say() { printf '\n== %s\n' "$*"; }

fetch_userland() { # BASE OPTION...
    local base=$trial/$1
    shift
    [[ ! -e $base.whole ]] || return 0
    rm -rf "$base"
    debootstrap --variant=minbase "$@" bookworm "$base"
    touch "$base.whole"
}

# --- The userland ----------------------------------------------------------------------------------

# A fresh userland, $userland, and what files it has.
fresh_userland() { # NAME [BASE]
    userland=$trial/$1
    rm -rf "$userland"
    cp -a --reflink=auto "$trial/${2-base}" "$userland"
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
    unshare --mount --pid --fork --kill-child bash -c '
        mount -t proc proc "$0/proc" && mount --rbind /sys "$0/sys" && exec chroot "$0" "$@"' "$userland" "$@"
}

# The machine's own rpm, on the userland, which knows nothing of rpm's dependencies.
rpm_inside() {
    rpm --root "$userland" --dbpath /var/lib/rpm "$@"
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

# Starts the daemon by hand, waits until it waits for signals, stops it. The log of the run before would
# tell that too early.
daemon_runs() {
    rm -f "$userland/$log"
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

# Before and behind a run of the daemon: nothing that fails, no trap in the settings.
zornctl_finds_nothing_wrong() {
    inside zornctl doctor && inside zornctl check-config --strict
}

files_are_as_packaged() {
    [[ -z $(inside dpkg -V zorn) ]]
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
    expect 'all files are as packaged' files_are_as_packaged
    expect 'it names who answers for it' deb_names_contact
    refute 'no unit is enabled' test -e "$userland/etc/systemd/system/multi-user.target.wants/zorn.service"
    expect 'without a module host the daemon says so and ends' daemon_refuses_without_module_host
    bring_module_host
    expect 'with one it starts and stops' daemon_runs
    expect 'zornctl shows its log' zornctl_shows_the_log
    expect 'zornctl finds nothing wrong' zornctl_finds_nothing_wrong

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

    say 'deb: install again'
    inside dpkg -i "$new"
    expect 'the settings are those that stayed' level_is 1
    expect 'the daemon starts and stops' daemon_runs

    say 'deb: go back to the version before'
    inside dpkg -i "$old"
    expect 'the daemon starts and stops' daemon_runs
    expect 'all files are as packaged' files_are_as_packaged

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
    rpm_inside -i --nodeps "$1"
    expect 'the settings are there' level_is 1
    expect 'all files are as packaged' rpm_inside -V --nodeps zorn
    expect 'it names who answers for it' rpm_names_contact
    expect 'it asks for gzip' rpm_asks_for_gzip
    bring_module_host
    expect 'the daemon starts and stops' daemon_runs
    expect 'zornctl shows its log' zornctl_shows_the_log

    say "rpm: upgrade to $2"
    set_level 3
    rpm_inside -U --nodeps "$2"
    expect 'changed settings stay' level_is 3
    expect 'the daemon starts and stops' daemon_runs

    say 'rpm: erase'
    take_module_host
    rpm_inside -e --nodeps zorn
    expect 'changed settings are kept aside' test -e "$userland/$settings/global_trace.ini.rpmsave"
    rm "$userland/$settings/global_trace.ini.rpmsave"
    expect 'the registry stays' test -s "$userland/$registry/registry"
    rm -r "${userland:?}/$registry"
    (cd "$userland/opt" && rmdir -p "${settings#opt/}")
    expect 'nothing else is left' nothing_is_left
}

deb_names_contact() {
    # shellcheck disable=SC2016  # for dpkg-query
    [[ $(inside dpkg-query -W -f '${Maintainer}' zorn) == "$contact" ]]
}

rpm_names_contact() {
    [[ $(rpm_inside -q --qf '%{PACKAGER}' zorn) == "$contact" ]]
}

rpm_asks_for_gzip() {
    grep -x gzip <<<"$(rpm_inside -qR zorn)"
}

try_archive() { # ARCHIVE NEWER-ARCHIVE
    say "archive: unpack $1"
    fresh_userland archive
    tar -C "$userland" -xzf "$1"
    bring_module_host
    expect 'the daemon starts and stops' daemon_runs
    expect 'zornctl shows its log' zornctl_shows_the_log
    expect 'zornctl finds nothing wrong' zornctl_finds_nothing_wrong

    say "archive: unpack $2 over it"
    set_level 3
    tar -C "$userland" --exclude=global_trace.ini -xzf "$2"
    expect 'changed settings stay' level_is 3
    expect 'the daemon starts and stops' daemon_runs
}

# --- Under systemd -----------------------------------------------------------------------------------

# The userland boots, a unit of the trial runs what is to be tried, and the machine is switched off.
try_systemd() { # PACKAGE NEWER-PACKAGE
    say "systemd: install $1, upgrade to $2, remove"
    fresh_userland systemd base-systemd
    mkdir "$userland/trial"
    cp -r "$@" build/package/lib/libswitch.so build/package/lib/modules "$userland/trial"
    {
        printf '#!/bin/bash\nset -euo pipefail\nsettings=%s log=%s\n' "$settings" "$log"
        declare -f expect refute die "${for_the_booted_machine[@]}"
        printf '%s /trial/%s /trial/%s\n' on_the_booted_machine "${1##*/}" "${2##*/}"
    } >"$userland/trial/run"
    chmod 755 "$userland/trial/run"
    boot_into_trial >"$trial/boot.log" 2>&1 || die "the userland does not boot: see $trial/boot.log"
    cat "$userland/trial/said"
    [[ $(tail -n 1 "$userland/trial/said") == 'ok: all' ]] || die "see $trial/boot.log"
}

boot_into_trial() {
    local units=$userland/etc/systemd/system
    cat >"$units/trial.service" <<'END'
[Unit]
FailureAction=poweroff
SuccessAction=poweroff

[Service]
ExecStart=/trial/run
StandardError=inherit
StandardOutput=file:/trial/said
TimeoutStartSec=10min
Type=oneshot
END
    mkdir -p "$units/multi-user.target.wants"
    ln -s ../trial.service "$units/multi-user.target.wants/trial.service"
    timeout 900 systemd-nspawn --boot --capability=CAP_SYS_RAWIO --directory="$userland" --keep-unit \
        --private-network --register=no </dev/null
}

for_the_booted_machine=(on_the_booted_machine mounts_are restarted_with status_has unit_is
    waits_for_signals)

on_the_booted_machine() { # PACKAGE NEWER-PACKAGE
    local host=/opt/Corvanthimex/lib64 drop_ins=/etc/systemd/system/zorn.service.d pid
    cd /
    dpkg -i "$1"
    expect 'the unit is neither enabled nor started' unit_is disabled inactive
    cp -r /trial/libswitch.so /trial/modules "$host"
    sed -i 's/^FileDebugLevel=.*/FileDebugLevel=2/' "$settings/global_trace.ini"
    systemctl enable --now zorn
    expect 'it starts' unit_is enabled active
    expect 'the daemon waits for signals' waits_for_signals
    expect 'its module works' grep -q MachineReport "$log"
    expect 'with two capabilities' status_has CapBnd 0000000000020004
    expect 'and no new ones' status_has NoNewPrivs 1
    expect 'under a filter of system calls' status_has Seccomp 2
    expect 'in the mounts of the machine' mounts_are shared
    expect 'the log is for root and its group' test "$(stat -c '%a %u' "$log")" = '640 0'
    expect 'zornctl finds nothing wrong' zornctl doctor
    expect 'neither in its settings' zornctl check-config --strict --environment-of "$(pidof zorn)"

    pid=$(systemctl show -P MainPID zorn)
    dpkg -i "$2"
    expect 'an upgrade starts it anew' waits_for_signals
    refute 'as another process' test "$pid" = "$(systemctl show -P MainPID zorn)"

    mkdir "$drop_ins"
    expect 'it runs with hardening.conf' restarted_with hardening.conf
    expect 'with mounts of its own' mounts_are own
    expect 'it runs with inventory.conf besides' restarted_with inventory.conf
    expect 'with four capabilities' status_has CapBnd 00000000002a0004

    dpkg -r zorn
    expect 'a removal stops it' unit_is not-found inactive
    refute 'and disables it' test -L /etc/systemd/system/multi-user.target.wants/zorn.service
    rm -r "$drop_ins" "${host:?}"/{libswitch.so,modules}
    dpkg -P zorn
    refute 'a purge takes the settings along' test -e "$settings"
    expect 'all' true
}

unit_is() { # STATE-OF-FILE STATE
    local file state
    file=$(systemctl show -P UnitFileState zorn)
    state=$(systemctl show -P ActiveState zorn)
    printf '%s, %s\n' "${file:-not-found}" "$state"
    [[ ${file:-not-found} == "$1" && $state == "$2" ]]
}

waits_for_signals() {
    grep -qm1 'Waiting for signals' < <(exec timeout 60 tail -n +1 -F "$log" 2>/dev/null)
}

status_has() { # KEY VALUE
    grep -P "^$1:\t$2\$" "/proc/$(systemctl show -P MainPID zorn)/status"
}

mounts_are() { # own|shared
    local service machine kind=own
    service=$(readlink "/proc/$(systemctl show -P MainPID zorn)/ns/mnt") || return 1
    machine=$(readlink /proc/1/ns/mnt) || return 1
    [[ $service != "$machine" ]] || kind=shared
    [[ $kind == "$1" ]]
}

restarted_with() { # DROP-IN
    cp "/usr/share/doc/zorn/examples/systemd/$1" "$drop_ins"
    systemctl daemon-reload
    systemctl restart zorn
    waits_for_signals && [[ $(systemctl is-active zorn) == active ]]
}

main "$@"

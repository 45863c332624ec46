#!/usr/bin/env bash
# One test of what is installed and packaged, by its name; ctest calls this with the build tree's paths
# in the environment (CMakeLists.txt). Exit status 77: skipped, the reason is the last line.
#
# All but the first work on the installation that the first one makes below $STAGE.

set -euo pipefail

fail() {
    printf 'FAILED: %s\n' "$*" >&2
    exit 1
}

skip() {
    printf 'Skipped: %s\n' "$*"
    exit 77
}

need() { # PROGRAM...
    local program
    for program; do
        command -v "$program" >/dev/null || skip "$program is not installed"
    done
}

# Runs a command as root, or as the root of a user namespace, with mounts of its own.
as_root() {
    local user=()
    ((EUID == 0)) || user=(--map-root-user)
    unshare "${user[@]}" --mount true 2>/dev/null || skip 'the kernel gives no mount namespace'
    unshare "${user[@]}" --mount "$@"
}

# A fresh folder for a test's own files.
scratch() { # NAME
    rm -rf "${STAGE:?}-$1"
    mkdir -p "$STAGE-$1"
    printf '%s' "$STAGE-$1"
}

unit=$STAGE/usr/lib/systemd/system/zorn.service
golden=$SOURCE_DIR/tests/packaging/installed_files.txt

# --- The installation --------------------------------------------------------------------------------

StagesAnInstallation() {
    rm -rf "${STAGE:?}"
    (umask 0 && DESTDIR=$STAGE "$CMAKE" --install "$BINARY_DIR")
}

InstallsExactlyTheListedFilesWithTheirModes() {
    local installed
    installed=$(cd "$STAGE" && find . -mindepth 1 -printf '%M /%P\n' | LC_ALL=C sort -k2)
    if [[ ${ZORN_UPDATE_GOLDEN-} ]]; then
        printf '%s\n' "$installed" >"$golden"
    fi
    diff -u "$golden" - <<<"$installed" ||
        fail "what is installed has changed; with ZORN_UPDATE_GOLDEN=1 this test writes $golden anew"
}

NothingInstalledNamesTheBuildTree() {
    ! grep -rlF --exclude=zorn --exclude=zornctl -e "$BINARY_DIR" -e "$SOURCE_DIR" "$STAGE" ||
        fail 'these files name folders of the build'
}

# Links to pages and files beside, not those into the net.
TheLinksOfTheInstalledDocumentsLeadSomewhere() {
    local page link count=0
    while IFS=: read -r page link; do
        link=${link#](} link=${link%)}
        link=${link%%#*}
        [[ $link != *://* ]] || continue
        [[ -e $(dirname "$page")/$link ]] || fail "${page#"$STAGE"} links to $link"
        count=$((count + 1))
    done < <(grep -roE --include='*.md' '\]\([^)# ][^) ]*\)' "$STAGE/usr/share/doc/zorn")
    ((count > 0)) || fail 'no links were found'
}

AnInstallationKeepsSettingsThatAreThere() {
    local root settings
    root=$(scratch again)
    settings=$root/opt/Corvanthimex/vital/etc/kelmora/TarnhollowSuite/TraceConfig/global_trace.ini
    DESTDIR=$root "$CMAKE" --install "$BINARY_DIR" >/dev/null
    cmp "$settings" "$SOURCE_DIR/packaging/trace/global_trace.ini"
    sed -i 's/^FileDebugLevel=.*/FileDebugLevel=3/' "$settings"
    rm "$root/usr/bin/zornctl"
    DESTDIR=$root "$CMAKE" --install "$BINARY_DIR" >/dev/null
    grep -qx 'FileDebugLevel=3' "$settings" || fail 'the changed settings were overwritten'
    [[ -e $root/usr/bin/zornctl ]] || fail 'the rest was not installed'
}

# The word that the packages have for reports: what is told to the build, or that nobody was.
ThePackagesNameWhoAnswersForThem() {
    local contact
    contact=$(sed -n 's/^ZORN_CONTACT:STRING=//p' "$BINARY_DIR/CMakeCache.txt")
    : "${contact:=nobody named (built without ZORN_CONTACT)}"
    grep -qxF "set(CPACK_PACKAGE_CONTACT [==[$contact]==])" "$BINARY_DIR/CPackConfig.cmake" ||
        grep -qxF "set(CPACK_PACKAGE_CONTACT \"$contact\")" "$BINARY_DIR/CPackConfig.cmake" ||
        fail "no package says '$contact'"
    grep -qF "Packager: $contact" "$BINARY_DIR/CPackConfig.cmake" || fail 'the .rpm does not'
}

# --- Authors of modules ------------------------------------------------------------------------------

TheHeadersCompileWithTheInstalledOnesAlone() {
    (cd "$STAGE/usr/include/zorn" && find . -name '*.h' -printf '#include "%P"\n') |
        "$CXX" -std=c++20 -Wall -Wextra -Werror -fsyntax-only -I"$STAGE/usr/include/zorn" -x c++ -
}

TheExamplesBuildWithFindPackage() {
    local build
    build=$(scratch examples)
    cp -r "$STAGE/usr/share/doc/zorn/examples" "$build/source"
    "$CMAKE" -G Ninja -S "$build/source" -B "$build/build" -DCMAKE_CXX_COMPILER="$CXX" \
        -DCMAKE_PREFIX_PATH="$STAGE/usr" -DCMAKE_BUILD_TYPE=Release
    "$CMAKE" --build "$build/build"
}

# The page's code blocks of a language that hold a text.
blocks() { # LANGUAGE TEXT
    awk -v fence="\`\`\`$1" -v text="$2" '
        /^```/ { if (inside && index(block, text)) printf "%s", block; inside = $0 == fence; block = ""; next }
        inside { block = block $0 "\n" }' "$STAGE/usr/share/doc/zorn/docs/modules.md"
}

exports_its_entry() { # LIBRARY
    nm -D --defined-only "$1" | grep -q ' ZornModuleEntry$' || fail "$1 does not export its entry"
}

TheModuleOfTheManualBuildsWithPkgConfig() {
    need pkg-config
    local build
    build=$(scratch pkg-config)
    blocks cpp ZornModuleEntry >"$build/heartbeat.cpp"
    blocks bash pkg-config >"$build/build.sh"
    (cd "$build" && PKG_CONFIG_PATH=$STAGE/usr/share/pkgconfig bash -e build.sh)
    exports_its_entry "$build/heartbeat.so"
}

TheModuleOfTheManualBuildsWithFindPackage() {
    local build
    build=$(scratch find-package)
    blocks cpp ZornModuleEntry >"$build/heartbeat.cpp"
    {
        printf 'cmake_minimum_required(VERSION 3.25)\nproject(heartbeat LANGUAGES CXX)\n'
        blocks cmake find_package
    } >"$build/CMakeLists.txt"
    "$CMAKE" -S "$build" -B "$build/build" -G Ninja -DCMAKE_CXX_COMPILER="$CXX" \
        -DCMAKE_PREFIX_PATH="$STAGE/usr"
    "$CMAKE" --build "$build/build"
    exports_its_entry "$build/build/heartbeat.so"
}

# The whole of it: the daemon in its place, with the packaged settings, finds the example module host by
# its run path and the module beside it.
TheInstalledDaemonRunsTheExampleModules() {
    [[ -d /opt ]] || skip 'there is no /opt to mount over'
    [[ -z $SANITIZE ]] || skip 'the dlopen of a sanitizer does not know the run path'
    local run
    run=$(scratch run)
    cp -r "$STAGE/opt" "$run/opt"
    cp -r "$STAGE-examples/build/libswitch.so" "$STAGE-examples/build/modules" \
        "$run/opt/Corvanthimex/lib64"
    mkdir "$run/log"
    export -f serve fail
    as_root bash -c "set -euo pipefail; serve '$run'"
    grep -F 'MachineReport' "$run/log/tolbrin/log.zorn" || fail 'the module wrote nothing'
    [[ $(stat -c %a "$run/log/tolbrin/log.zorn") == 640 ]] || fail 'the log is not for root alone'
}

serve() { # FOLDER
    local log=/var/log/tolbrin/log.zorn daemon status=0
    mount --bind "$1/opt" /opt
    mount --bind "$1/log" /var/log
    mkdir /var/log/tolbrin
    umask 026  # the unit's
    env -i QX_LOG_DEBUG_LEVEL=2 "$STAGE/usr/libexec/zorn/zorn" &
    daemon=$!
    grep -qm1 'Waiting for signals' \
        < <(exec timeout 60 tail --pid="$daemon" -n +1 -F "$log" 2>/dev/null) || fail "no start: $(cat "$log")"
    kill -TERM "$daemon"
    wait "$daemon" || status=$?
    ((status == 0)) || fail "the daemon's exit status is $status"
}

# --- The service -------------------------------------------------------------------------------------

# A root with the unit, its executable, the targets of this machine and the drop-ins given.
unit_root() { # NAME DROP-IN...
    local root units
    root=$(scratch "$1")
    units=$root/usr/lib/systemd/system
    mkdir -p "$units/zorn.service.d" "$root/usr/libexec/zorn"
    cp /usr/lib/systemd/system/*.{target,slice} "$units" 2>/dev/null || true
    cp "$unit" "$units"
    cp "$STAGE/usr/libexec/zorn/zorn" "$root/usr/libexec/zorn"
    shift
    (($# == 0)) || cp "$@" "$units/zorn.service.d"
    printf '%s' "$root"
}

drop_ins=$STAGE/usr/share/doc/zorn/examples/systemd

TheUnitAndItsDropInsAreValid() {
    need systemd-analyze
    local said
    said=$(systemd-analyze verify --man=no --recursive-errors=one \
        --root="$(unit_root verify "$drop_ins"/*.conf)" zorn.service 2>&1) || fail "$said"
    [[ -z $said ]] || fail "$said"
}

exposure() { # LIMIT, in tenths; DROP-IN...
    need systemd-analyze
    local limit=$1 table root
    shift
    root=$(unit_root exposure "$@")
    table=$(systemd-analyze security --no-pager --offline=true --threshold="$limit" --root="$root" \
        zorn.service) || fail "above the limit of $limit tenths: $table"
    tail -n 1 <<<"$table"
}

ExposureIsAtMost38Tenths() {
    exposure 38
}

ExposureIsAtMost24TenthsWithTheHardeningDropIn() {
    exposure 24 "$drop_ins/hardening.conf"
}

ExposureIsAtMost43TenthsWithTheInventoryDropIn() {
    exposure 43 "$drop_ins/inventory.conf"
}

ExposureIsAtMost27TenthsWithBothDropIns() {
    exposure 27 "$drop_ins"/{hardening,inventory}.conf
}

# The options whose text in systemd.exec(5) tells of a mount namespace; and ProtectHostname, with which
# the service would go on with the name that the host had at the start.
TheUnitMakesNoMountNamespace() {
    local options='BindPaths|BindReadOnlyPaths|DynamicUser|ExecPaths|ExtensionDirectories|ExtensionImages'
    options+='|InaccessiblePaths|IPCNamespacePath|LogNamespace|MountAPIVFS|MountFlags|MountImages'
    options+='|NoExecPaths|PrivateDevices|PrivateIPC|PrivateMounts|PrivateNetwork|PrivateTmp|ProcSubset'
    options+='|ProtectControlGroups|ProtectHome|ProtectHostname|ProtectKernelLogs|ProtectKernelModules'
    options+='|ProtectKernelTunables|ProtectProc|ProtectSystem|ReadOnlyPaths|ReadWritePaths'
    options+='|RootDirectory|RootImage|TemporaryFileSystem'
    ! grep -nE "^($options)=" "$unit" || fail 'these options give a namespace'
}

TheUnitDoesNotReload() {
    ! grep -n '^ExecReload' "$unit" || fail 'SIGHUP switches the trace, it reloads nothing'
}

TheLinesOfTheUnitAreInAlphabeticalOrder() {
    sed -n '/^\[Service\]/,/^\[Install\]/s/^\([A-Za-z]*\)=.*/\1/p' "$unit" | LC_ALL=C sort -f -c
}

# A root that knows root.
tmpfiles_root() { # NAME
    local root
    root=$(scratch "$1")
    mkdir "$root/etc"
    printf 'root:x:0:0:root:/root:/bin/sh\n' >"$root/etc/passwd"
    printf 'root:x:0:\n' >"$root/etc/group"
    printf '%s' "$root"
}

make_tmpfiles() { # ROOT
    as_root systemd-tmpfiles --root="$1" --create "$STAGE/usr/lib/tmpfiles.d/zorn.conf"
}

TmpfilesMakeTheFoldersButNotThatOfTheSettings() {
    need systemd-tmpfiles
    local root
    root=$(tmpfiles_root tmpfiles)
    make_tmpfiles "$root"
    diff -u - <(cd "$root" && find opt var -printf '%M %p\n' | LC_ALL=C sort -k2) <<'END'
drwxr-xr-x opt
drwxr-xr-x opt/Corvanthimex
drwxr-xr-x opt/Corvanthimex/lib64
drwxr-xr-x opt/Corvanthimex/vital
drwxr-xr-x opt/Corvanthimex/vital/etc
drwxr-xr-x opt/Corvanthimex/vital/etc/tolbrin
drwxr-xr-x var
drwxr-xr-x var/log
drwxr-xr-x var/log/tolbrin
END
}

# Every folder and ini file open to all; what is installed has the right modes.
TmpfilesMendModes() {
    need systemd-tmpfiles
    local root
    root=$(tmpfiles_root tmpfiles-modes)
    mkdir "$root/var"
    cp -r "$STAGE/opt" "$root/opt"
    cp -r "$STAGE/var/log" "$root/var/log"
    touch "$root/opt/Corvanthimex/vital/etc/kelmora/TarnhollowSuite/TraceConfig/mine.ini.bak"
    find "$root"/{opt,var/log}/* -type d -exec chmod 0777 {} +
    find "$root/opt" -type f -exec chmod 0666 {} +
    [[ $(stat -c %a "$root/opt/Corvanthimex") == 777 ]]
    make_tmpfiles "$root"
    ! find "$root"/{opt,var/log}/* -perm /022 -print | grep . || fail 'these are open to others'
}

# --- Texts -------------------------------------------------------------------------------------------

ManPagesAreClean() {
    need mandoc
    local page
    for page in "$STAGE"/usr/share/man/*/*; do
        gzip -dc "$page" | mandoc -T lint -W warning || fail "${page##*/}"
    done
}

TheManualShowsThePackagedSettings() {
    local page=$SOURCE_DIR/packaging/man/zorn-trace.ini.5
    diff -u "$SOURCE_DIR/packaging/trace/global_trace.ini" \
        <(sed -n '/^\[GlobalDebugSettings\]/,/^\[EndOfFile\]/p' "$page")
}

[[ $(type -t "$1") == function ]] || fail "no test called '$1'"
"$1"

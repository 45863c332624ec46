#!/usr/bin/env bash
# Builds zorn and runs it from the build tree; --help tells more.

# shellcheck source=scripts/lib.sh
source "$(dirname "$0")/lib.sh"

usage() {
    cat <<'END'
Usage: scripts/run.sh [--seconds N]

Builds zorn (preset release; what that needs is installed) and runs it from the build tree, with the
reference module host and the modules in build/release/lib/modules, until Ctrl-C. The log is shown as
it is written. Nothing outside the build tree is touched; but where a registry is installed, the example
module counts its starts in it.

  --seconds N   stop after N seconds
  --help        this text

Environment:
  QX_LOG_DEBUG_LEVEL   level of the trace, 1 to 6 (default 3)
  ZORN_MODULE_DIR      another folder of modules (absolute)

Log: build/run/log/log.zorn. The service needs root, so sudo may ask for a password. Where the
machine has a configuration directory of the trace, its settings apply as well; the environment
comes first. A second Ctrl-C kills a service that does not stop. The exit status is the service's.
END
}

main() {
    local seconds=''
    case ${1-} in
        '') ;;
        --help) usage && exit ;;
        --seconds)
            seconds=${2-}
            [[ $seconds =~ ^[0-9]+$ ]] || die '--seconds needs a number'
            ;;
        *) die "unknown argument '$1' (see --help)" ;;
    esac
    if ((EUID != 0)); then is_installed sudo || die 'neither root nor sudo: zorn runs as root only'; fi
    check_configuration /opt/Corvanthimex/vital/etc/kelmora/TarnhollowSuite/TraceConfig
    build
    serve_as_root "$seconds"
}

build() {
    need "${build_tools[@]}"
    cmake --preset release -DZORN_TESTS=OFF
    cmake --build --preset release
    mkdir -p build/run/log
}

# One root shell for the whole run, so that stopping asks for no second password.
serve_as_root() { # SECONDS
    local root=() settings=(
        LD_LIBRARY_PATH="$PWD/build/release/lib"
        ZORN_MODULE_DIR="${ZORN_MODULE_DIR:-$PWD/build/release/lib/modules}"
        QX_LOG_RINGBUF_DIR="$PWD/build/run/log"
        QX_LOG_DEBUG_LEVEL="${QX_LOG_DEBUG_LEVEL:-3}"
    )
    ((EUID == 0)) || root=(sudo)
    exec "${root[@]}" env "${settings[@]}" bash -c "$(declare -f serve); serve $1"
}

# The trace's configuration of the machine has its say here too; without an ini file in its folder no
# setting counts at all, and the log would be written to /log.zorn.
check_configuration() { # FOLDER
    [[ -d $1 ]] || return 0
    compgen -G "$1/*.ini*" >/dev/null || die "remove the folder $1, or put an ini file into it"
    printf 'Settings of the trace also come from %s\n' "$1"
}

# Starts the service, shows its log, and stops it when the time is up or this shell is told to end;
# should this shell die without a word, the kernel stops the service.
serve() { # [SECONDS]
    local log=$QX_LOG_RINGBUF_DIR/log.zorn service show timer=() status=0
    : >"$log"
    setpriv --pdeathsig TERM "$PWD/build/release/bin/zorn" &
    service=$!
    tail --pid="$service" -n +1 -f "$log" &
    show=$!
    if [[ ${1-} ]]; then
        sleep "$1" &
        timer=($!)
    fi
    trap : INT TERM HUP
    wait -n "$service" "${timer[@]}"
    trap 'kill -KILL "$service"' INT TERM HUP
    kill -TERM "$service" "${timer[@]}" 2>/dev/null
    wait "$service" || status=$?
    wait "$show"
    exit "$status"
}

main "$@"

# shellcheck shell=bash
# What the scripts here share; they source it first. It leaves the shell at the root of the repository.

set -euo pipefail
# So that ccache, where it is, takes precompiled headers.
export CCACHE_SLOPPINESS=pch_defines,time_macros
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# What each script needs, as TOOL:PACKAGE: a program on the PATH, a C++ header, a library of clang or the
# path of a file, and the Debian package that brings it.
# shellcheck disable=SC2034  # for the scripts that source this
{
    build_tools=(g++:g++ cmake:cmake ninja:ninja-build nlohmann/json.hpp:nlohmann-json3-dev)
    test_tools=(gtest/gtest.h:libgtest-dev gmock/gmock.h:libgmock-dev expat.h:libexpat1-dev
        ip:iproute2 zstd:zstd mandoc:mandoc pkg-config:pkgconf systemd-analyze:systemd zsh:zsh
        update-mime-database:shared-mime-info)
    check_tools=(git:git clang++:clang clang-format:clang-format clang-tidy:clang-tidy
        shellcheck:shellcheck)
}

die() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

# is_installed TOOL
is_installed() {
    case $1 in
        /*) [[ -e $1 ]] ;;
        *.h | *.hpp) [[ -e /usr/include/$1 || -e /usr/local/include/$1 ]] ;;
        *.a) [[ -e $(clang++ -print-file-name="$1") ]] ;;
        *) command -v "$1" >/dev/null ;;
    esac
}

# need TOOL:PACKAGE...: installs the packages of those tools that are missing (Debian and Ubuntu), or
# says what to install.
need() {
    local pair missing=() root=()
    for pair; do is_installed "${pair%:*}" || missing+=("${pair##*:}"); done
    ((${#missing[@]})) || return 0
    is_installed apt-get || die "please install what Debian calls: ${missing[*]}"
    if ((EUID != 0)); then
        is_installed sudo || die "neither root nor sudo to install: ${missing[*]}"
        root=(sudo)
    fi
    printf 'Installing %s\n' "${missing[*]}"
    "${root[@]}" apt-get -qq update
    "${root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get -qq install -y --no-install-recommends "${missing[@]}" >/dev/null
}

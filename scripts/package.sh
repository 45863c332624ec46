#!/usr/bin/env bash
# Builds the release and packages it: build/packages/ gets a .deb, an .rpm, a .tar.gz to be unpacked in /,
# and the debug information of the daemon. Installs what that needs (Debian and Ubuntu).
#
#   scripts/package.sh [--version VERSION]     another version than the project's, for trials of upgrades

# shellcheck source=scripts/lib.sh
source "$(dirname "$0")/lib.sh"

package_tools=(dpkg-shlibdeps:dpkg-dev rpmbuild:rpm)

main() {
    local version=() as_root=()
    case ${1-} in
        '') ;;
        --version)
            [[ ${2-} =~ ^[0-9]+(\.[0-9]+)*$ ]] || die '--version needs a version'
            version=(-D "CPACK_PACKAGE_VERSION=$2" -D "CPACK_PACKAGE_FILE_NAME=zorn-$2-x86_64")
            ;;
        *) die "unknown argument '$1'" ;;
    esac
    need "${build_tools[@]}" "${package_tools[@]}"
    # An ordinary user packs as the root of a user namespace: the files of the archive belong to root.
    ((EUID == 0)) || as_root=(unshare --map-root-user)

    umask 022
    cmake --preset release -B build/package -DZORN_TESTS=OFF
    cmake --build build/package
    mkdir -p build/packages
    "${as_root[@]}" cpack --config build/package/CPackConfig.cmake -B "$PWD/build/packages" "${version[@]}"
    rm -r build/packages/_CPack_Packages
    objcopy --only-keep-debug build/package/bin/zorn build/packages/zorn.debug
    ls -l build/packages
}

main "$@"

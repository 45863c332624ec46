#!/usr/bin/env bash
# Builds the release and packages it: build/packages/ gets a .deb, an .rpm, a .tar.gz to be unpacked in /,
# and the debug information of the daemon. Installs what that needs (Debian and Ubuntu).
#
#   scripts/package.sh [--contact 'NAME <ADDRESS>'] [--version VERSION]
#
#   --contact    who answers for the packages and takes reports: ZORN_CONTACT, which they show
#   --version    another version than the project's, for trials of upgrades

# shellcheck source=scripts/lib.sh
source "$(dirname "$0")/lib.sh"

package_tools=(dpkg-shlibdeps:dpkg-dev rpmbuild:rpm)

main() {
    local version=() contact='' as_root=()
    while (($#)); do
        case $1 in
            --contact)
                [[ ${2-} ]] || die '--contact needs a name and an address'
                contact=$2
                ;;
            --version)
                [[ ${2-} =~ ^[0-9]+(\.[0-9]+)*$ ]] || die '--version needs a version'
                version=(-D "CPACK_PACKAGE_VERSION=$2" -D "CPACK_PACKAGE_FILE_NAME=zorn-$2-x86_64")
                ;;
            *) die "unknown argument '$1'" ;;
        esac
        shift 2
    done
    need "${build_tools[@]}" "${package_tools[@]}"
    # An ordinary user packs as the root of a user namespace: the files of the archive belong to root.
    ((EUID == 0)) || as_root=(unshare --map-root-user)

    umask 022
    cmake --preset release -B build/package -DZORN_TESTS=OFF -DZORN_CONTACT="$contact"
    cmake --build build/package
    mkdir -p build/packages
    "${as_root[@]}" cpack --config build/package/CPackConfig.cmake -B "$PWD/build/packages" "${version[@]}"
    rm -r build/packages/_CPack_Packages
    objcopy --only-keep-debug build/package/bin/zorn build/packages/zorn.debug
    ls -l build/packages
}

main "$@"

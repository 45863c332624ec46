#!/usr/bin/env bash
# Builds everything for work (preset dev) and runs all tests; installs what that needs.
# The last lines are ctest's: how many tests passed, and which did not.

# shellcheck source=scripts/lib.sh
source "$(dirname "$0")/lib.sh"

# The machine that a test builds around the product stands in namespaces of its own.
if ((EUID != 0)) && ! unshare --user --map-root-user true 2>/dev/null; then
    die 'here only root can make namespaces (so it is in a chroot, and where the kernel is set so): run it with sudo'
fi
need "${build_tools[@]}" "${test_tools[@]}"
cmake --preset dev
cmake --build --preset dev
ctest --preset dev --parallel "$(nproc)" --no-tests=error "$@"

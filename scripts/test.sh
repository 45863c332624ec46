#!/usr/bin/env bash
# Builds everything for work (preset dev) and runs all tests; installs what that needs.
# The last lines are ctest's: how many tests passed, and which did not.

# shellcheck source=scripts/lib.sh
source "$(dirname "$0")/lib.sh"

need "${build_tools[@]}" "${test_tools[@]}"
cmake --preset dev
cmake --build --preset dev
ctest --preset dev --parallel "$(nproc)" --no-tests=error "$@"

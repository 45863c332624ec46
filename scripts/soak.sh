#!/usr/bin/env bash
# Kills a writer of the ring at random moments, 10,000 of them unless told, and reads what it left each
# time (tests/zornctl/killed_writer_test.cpp). Shows how often each state was met; docs/reliability.md
# keeps such figures. Exit status 1 if a ring was not restored.
#
#   scripts/soak.sh [ROUNDS]

# shellcheck source=scripts/lib.sh
source "$(dirname "$0")/lib.sh"

rounds=${1:-10000}
[[ $rounds =~ ^[1-9][0-9]*$ && $# -le 1 ]] || die "usage: scripts/soak.sh [ROUNDS]"

# As what ships is built: a compiler that optimises may move stores.
need "${build_tools[@]}" "${test_tools[@]}"
cmake --preset release -B build/soak -DZORN_TESTS=ON
cmake --build build/soak --target zornctl_test

ZORN_SOAK_ROUNDS=$rounds build/soak/bin/zornctl_test --gtest_filter='KilledRing.*'

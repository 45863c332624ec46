#!/usr/bin/env bash
# Kills a writer of the ring and then one of the log at random moments, 10,000 of them each unless told,
# and reads what it left each time (tests/zornctl/killed_writer_test.cpp). Shows how often each state was
# met; docs/reliability.md keeps such figures. Exit status 1 if a file was not restored.
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

filter='KilledWriter.*'
program=build/soak/bin/zornctl_test
# A program that finds no test to run ends with 0 as well.
[[ $("$program" --gtest_filter="$filter" --gtest_list_tests) == *"${filter%\*}"* ]] || die "no test is called $filter"
ZORN_SOAK_ROUNDS=$rounds "$program" --gtest_filter="$filter"

#!/usr/bin/env bash
# Hands the parsers inputs that libFuzzer makes up, and looks for what must not be (docs/testing.md).
# Installs what is needed, builds the targets and runs them one after another: all, or those named.
# Inputs that reach new code stay in build/fuzz/corpus, where the next run goes on; those that failed
# stay in build/fuzz/findings. Exit status 1 if there is one.
#
#   scripts/fuzz.sh [--runs N] [--seconds N] [TARGET...]
#
#   --runs N       executions of a target: 10,000,000 unless told; 0 for each kept input once
#   --seconds N    ends a target after that time; alone, nothing else does

# shellcheck source=scripts/lib.sh
source "$(dirname "$0")/lib.sh"

folder=build/fuzz
# Longer than this with one input is a finding too. No input takes a hundredth of it.
most_seconds=10
# The exit status of a target that a signal has ended.
interrupted=72

usage() {
    die "usage: scripts/fuzz.sh [--runs N] [--seconds N] [TARGET...]; targets: ${all[*]}"
}

# The length of the longest seed of a target: no input is made longer.
longest_seed() { # TARGET
    find "fuzz/$1/seeds" -type f -printf '%s\n' | sort -n | tail -n 1
}

run_target() { # TARGET LOG
    local options=(-runs="$runs" -max_total_time="$seconds" -timeout="$most_seconds")
    options+=(-max_len="$(longest_seed "$1")" -artifact_prefix="$folder/findings/$1/")
    [[ ! -e fuzz/$1/dictionary ]] || options+=(-dict="fuzz/$1/dictionary")
    mkdir -p "$folder/corpus/$1" "$folder/findings/$1"
    UBSAN_OPTIONS=print_stacktrace=1 "$folder/bin/$1_fuzz" "${options[@]}" -print_final_stats=1 \
        "$folder/corpus/$1" "fuzz/$1/seeds" >"$2" 2>&1
}

# The last number behind a text; a dash if there is none.
last_number() { # TEXT LOG
    grep -aoP "$1 *\K[0-9]+" "$2" | tail -n 1 | grep . || echo -
}

report_target() { # TARGET
    local log=$folder/$1.log start=$SECONDS status=0 outcome=none
    run_target "$1" "$log" || status=$?
    ((status != interrupted)) || die "$1 was interrupted; what it kept stays"
    ((status == 0)) || outcome=FOUND
    printf '%-16s %11s %8s %8s %8s  %s\n' "$1" "$(last_number 'number_of_executed_units:' "$log")" \
        "$((SECONDS - start))" "$(last_number 'cov:' "$log")" \
        "$(find "$folder/corpus/$1" -type f | wc -l)" "$outcome"
    [[ $outcome == FOUND ]] || return 0
    failed+=("$1")
    echo "$log:"
    grep -aF -e 'does not hold:' -e 'runtime error:' -e 'ERROR: ' -e 'Test unit' -e " $PWD/" "$log" ||
        cat "$log"
}

all=()
for source in fuzz/*/seeds; do all+=("$(basename "$(dirname "$source")")"); done
runs='' seconds=0 targets=() failed=()
while (($#)); do
    case $1 in
        --runs | --seconds)
            [[ ${2:-} =~ ^[0-9]+$ ]] || usage
            declare "${1#--}=$2"
            shift
            ;;
        *)
            [[ " ${all[*]} " == *" $1 "* ]] || usage
            targets+=("$1")
            ;;
    esac
    shift
done
((${#targets[@]})) || targets=("${all[@]}")
if [[ -z $runs ]]; then runs=$((seconds ? -1 : 10000000)); fi

need "${build_tools[@]}" clang++:clang llvm-symbolizer:llvm
need "libclang_rt.fuzzer-x86_64.a:libclang-rt-$(clang++ -dumpversion | cut -d. -f1)-dev"
cmake --preset fuzz
cmake --build --preset fuzz --target "${targets[@]/%/_fuzz}"

printf '%-16s %11s %8s %8s %8s  %s\n' target executions seconds edges kept findings
for target in "${targets[@]}"; do report_target "$target"; done
((${#failed[@]} == 0)) || die "findings in $folder/findings: ${failed[*]}"

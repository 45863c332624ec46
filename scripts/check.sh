#!/usr/bin/env bash
# Everything that a change must pass besides the tests themselves (scripts/test.sh). Installs what it
# needs; runs all steps, or those named; a step's output is shown if it fails and kept in
# build/check/STEP.log. Exit status 1 if a step failed.
#
#   scripts/check.sh [STEP...]

# shellcheck source=scripts/lib.sh
source "$(dirname "$0")/lib.sh"

steps=(format includes owners wording shell clang fuzz tidy release asan tsan)

# --- The texts -----------------------------------------------------------------------------------

# All C++ stands as clang-format writes it.
step_format() {
    git ls-files '*.h' '*.cpp' | xargs -r clang-format --dry-run -Werror
}

# The layers of src/, from the bottom up: a folder includes from itself and from the layers below.
layers=(
    'trace'
    'platform'
    'registry netif markup codec inventory/text inventory/access inventory/device'
    'inventory/pci storage firmware'
    'inventory/adapter inventory/bus inventory/volume perf'
    'inventory/scan'
)
# The service is no client of the library: these are all that it may include. One file of it makes the
# process-wide objects of all layers.
service_uses='trace platform service'
service_objects='src/service/process_objects.cpp'

# Every include in src/ points into the file's own folder or a layer below it.
step_includes() {
    local -A allowed=([service]=" $service_uses ")
    local layer folder below='' bad=0 file line target
    for layer in "${layers[@]}"; do
        for folder in $layer; do allowed[$folder]=" $below $folder "; done
        below+=" $layer"
    done
    while IFS=: read -r file line target; do
        [[ $file != "$service_objects" ]] || continue
        folder=$(dirname "${file#src/}")
        target=${target#*\"} target=$(dirname "${target%%\"*}")
        if [[ ! -v allowed[$folder] ]]; then
            printf '%s: src/%s has no place among the layers (scripts/check.sh)\n' "$file" "$folder"
        elif [[ ${allowed[$folder]} != *" $target "* ]]; then
            printf '%s:%s: src/%s may not include from %s\n' "$file" "$line" "$folder" "$target"
        else
            continue
        fi
        bad=1
    done < <(git grep -nE '^ *# *include *"' -- src)
    return "$bad"
}

# What is opened or allocated is given back by the destructor of a small type. Only the files listed in
# scripts/owners.txt hold such types, or raw fields that their class alone owns.
step_owners() {
    local release='(^|[^[:alnum:]_.>])(close|fclose|pclose|closedir|munmap|free|dlclose)\(|(^|[^=] )\bdelete\b'
    ! git grep -nE "$release" -- 'src/*.cpp' 'src/*.h' 'tools/*.cpp' 'tools/*.h' 'examples/*.cpp' \
        'examples/*.h' | grep -vE '^[^:]+:[0-9]+: *//' | grep -vFf <(sed 's/[[:space:]].*/:/' scripts/owners.txt)
}

# Words that mean nothing to someone who has this repository alone.
step_wording() {
    ! git grep -nIiE 'spec[.]md|[p]art-check|\b[P]arts? [0-9]+[.][0-9]+|\bthe [s]pec(ification)?\b|[d]esign[.]md'
}

# Every shell script is clean for shellcheck.
step_shell() {
    git grep -lE '^#!.*\b(ba)?sh$' | xargs shellcheck -x
    shellcheck scripts/lib.sh
}

# --- Other compilers, other builds -----------------------------------------------------------------

# The release as clang builds it, with its thread-safety analysis (-Werror).
step_clang() {
    build clang -DZORN_TESTS=OFF
}

# The seeds of every fuzz target once, and the inputs that earlier runs have kept here.
step_fuzz() {
    scripts/fuzz.sh --runs 0
}

# clang-tidy over the product; the checks and their reasons are in .clang-tidy.
step_tidy() {
    cmake --preset clang -DZORN_TESTS=OFF
    git ls-files 'src/*.cpp' 'tools/*.cpp' 'examples/*.cpp' |
        xargs -r -P "$(nproc)" -n 4 clang-tidy -p build/clang --quiet
}

# What ships, and on it the test programs that run the real executable (those called *system_test).
step_release() {
    build release -DZORN_TESTS=OFF
    build_tests release '[^/]*system_test\.dir/'
    run_tests release --label-regex '^system$'
}

# All tests under the address and undefined behaviour sanitizers.
step_asan() {
    build asan -DZORN_TESTS=ON
    run_tests asan
}

# The test programs that hold tests of threads (a source *_threads_test.cpp), whole, under the thread
# sanitizer.
step_tsan() {
    build_tests tsan '[^/]*\.dir/[^ ]*_threads_test\.cpp'
    run_tests tsan --exclude-regex '_NOT_BUILT$' --label-exclude '^packaging$'
}

build() { # PRESET OPTION...
    cmake --preset "$@"
    cmake --build --preset "$1"
}

# Builds only those test programs that an object file of CMake's matches.
build_tests() { # PRESET OBJECT-REGEX
    local programs
    cmake --preset "$1" -DZORN_TESTS=ON
    mapfile -t programs < <(grep -oE "/CMakeFiles/$2" "build/$1/compile_commands.json" |
        sed 's|/CMakeFiles/||; s|\.dir/.*||' | sort -u)
    cmake --build --preset "$1" --target "${programs[@]}"
}

run_tests() { # PRESET OPTION...
    ctest --preset "$@" --parallel "$(nproc)" --no-tests=error
}

# --- The run ---------------------------------------------------------------------------------------

failed=()

run_step() { # STEP
    local log=build/check/$1.log start=$SECONDS
    [[ $(type -t "step_$1") == function ]] || die "no step called '$1'; there are: ${steps[*]}"
    printf '%-10s' "$1"
    "step_$1" >"$log" 2>&1 & # waited for outside, so that the first failing command ends the step
    if wait $!; then
        printf 'ok      %4d s\n' $((SECONDS - start))
    else
        printf 'FAILED  %4d s\n' $((SECONDS - start))
        cat "$log"
        failed+=("$1")
    fi
}

main() {
    (($#)) || set -- "${steps[@]}"
    need "${build_tools[@]}" "${test_tools[@]}" "${check_tools[@]}"
    mkdir -p build/check
    local step
    for step; do run_step "$step"; done
    ((${#failed[@]} == 0)) || die "failed: ${failed[*]}"
}

main "$@"

# Read by the other scripts: where the tree is, and how a preset is built and tested.
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1
root=$PWD
jobs=${ENGINE_JOBS:-$(nproc)}

say() { printf '\n== %s\n' "$*"; }
fail() { printf '%s: %s\n' "${0##*/}" "$*" >&2; exit 1; }

# build PRESET [TARGET...]: silent about configuring unless that fails.
build() {
    local preset=$1 log=$root/build/$1.configure.log
    shift
    mkdir -p build
    cmake --preset "$preset" >"$log" 2>&1 || { cat "$log"; return 1; }
    cmake --build "build/$preset" -j "$jobs" ${*:+--target "$@"}
}

# ThreadSanitizer cannot live with every layout that Linux chooses at random, so it gets a fixed one where that is allowed.
run_tests() {
    local fixed=
    [ "$1" = linux-tsan ] && setarch -R true 2>/dev/null && fixed="setarch -R"
    $fixed ctest --preset "$1" -j "$jobs" --no-tests=error
}

# step NAME COMMAND...: runs a step of a longer run and remembers how it went, for the summary.
step_names=() step_results=() step_times=()
step() {
    local name=$1 start=$SECONDS status
    shift
    say "$name"
    "$@"
    status=$?
    step_names+=("$name") step_results+=("$status") step_times+=($((SECONDS - start)))
    return $status
}

# Prints what each step came to; the status is 1 when one failed.
summary() {
    local at failed=0 word
    printf '\n'
    for at in "${!step_names[@]}"; do
        word=Passed
        [ "${step_results[$at]}" = 0 ] || { word=FAILED; failed=$((failed + 1)); }
        printf '%2d/%d  %-48s %s %6d s\n' $((at + 1)) ${#step_names[@]} "${step_names[$at]}" $word "${step_times[$at]}"
    done
    printf '\n%s: %d of %d steps passed in %d s\n' "${0##*/}" $((${#step_names[@]} - failed)) ${#step_names[@]} "$SECONDS"
    [ $failed = 0 ]
}

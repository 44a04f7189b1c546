# Shared by ./run and ./test: quiet steps that show their progress and say where their log lies.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
logs=$root/build/logs
mkdir -p "$logs"

# step NAME CMD...: runs CMD with its output in a log. One line on standard error when it ends; on
# failure the end of the log as well.
step() {
    local name=$1 log start
    shift
    log=$logs/${name//[^A-Za-z0-9.-]/_}.log
    start=$SECONDS
    [ -t 2 ] && printf '%-44s ...\r' "$name" >&2
    if "$@" >"$log" 2>&1 </dev/null; then
        if [ -z "${QUIET:-}" ]; then
            printf '%-44s %4d s\n' "$name" $((SECONDS - start)) >&2
        fi
        return 0
    fi
    printf '%-44s failed after %d s\n' "$name" $((SECONDS - start)) >&2
    tail -n 40 "$log" >&2
    echo "$name failed; its whole log is $log" >&2
    return 1
}

# build PRESET [TARGET...]: configures where the presets are newer, and builds.
build() {
    local preset=$1
    shift
    (
        cd "$root"
        [ "build/$preset/build.ninja" -nt CMakePresets.json ] || cmake --preset "$preset"
        cmake --build "build/$preset" ${1:+--target} "$@"
    )
}

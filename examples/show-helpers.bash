# What the examples' show scripts share; to be sourced. Each runs its example, shows what can be seen of it, and ends
# with status 0 only if all that is expected was seen.

example=$(basename "$(dirname "$0")")
viewer=""
faults=0
background=()
sockets=$(mktemp -d)

# Whatever is still running was started here.
cleanup() {
    local pid
    for pid in $viewer "${background[@]}"; do
        kill "$pid" 2>/dev/null || true
    done
    rm -rf "$sockets"
}
trap cleanup EXIT

heading() { printf '\n=== %s\n' "$*"; }

fault() {
    printf '%s: not seen: %s\n' "$example" "$*" >&2
    faults=$((faults + 1))
}

# expect WHAT FILE PATTERN: the file holds a line of this (extended) pattern.
expect() {
    grep -qE -- "$3" "$2" || fault "$1"
}

# expect_status WHAT EXPECTED STATUS
expect_status() {
    [ "$2" -eq "$3" ] || fault "$1 (it is $3)"
}

# await WHAT COMMAND...: until the command succeeds, for twenty seconds at most.
await() {
    local what=$1 tries
    shift
    for ((tries = 0; tries < 400; tries++)); do
        ! "$@" 2>/dev/null || return 0
        sleep 0.05
    done
    fault "$what"
    exit 1
}

# start_viewer PREFIX OUTPUT: what is logged from here on arrives in the file.
start_viewer() {
    export KO_PLATFORM_LOG="$sockets/log"
    "$1/bin/ko_logview" --socket "$KO_PLATFORM_LOG" >"$2" &
    viewer=$!
    await "the log viewer listening" test -S "$KO_PLATFORM_LOG"
}

# Whatever has arrived is still printed before it ends.
stop_viewer() {
    kill "$viewer"
    wait "$viewer" || fault "the log viewer ending with status 0"
    viewer=""
}

conclude() {
    [ "$faults" -eq 0 ] || {
        printf '\n%s: %d of the expected things were not seen\n' "$example" "$faults" >&2
        exit 1
    }
}

# Shared by the tests beside it: a folder of their own, a server, ports, files to send, and an end without leftovers.
set -u
vrx=$1 plugin=$2
work=$(mktemp -d)
chmod 755 "$work"
cd "$work" || exit 1
started=()
finish() {
    local status=$?
    [ ${#started[@]} -eq 0 ] || { kill "${started[@]}"; wait "${started[@]}"; } 2>/dev/null
    cd / && rm -rf "$work"
    exit $status
}
trap finish EXIT
trap 'exit 1' INT TERM

# need PROGRAM...: skips the test where one is missing.
need() {
    local program
    for program in "$@"; do
        command -v "$program" >/dev/null || [ -x "/usr/sbin/$program" ] || { echo "skipped: $program is missing (script/setup network)"; exit 77; }
    done
}

fail() { echo "FAILED: $*" >&2; exit 1; }

# eventually COMMAND...: repeats it for up to 20 seconds, until it succeeds.
eventually() {
    local end=$((SECONDS + 20))
    until "$@" 2>/dev/null; do
        [ $SECONDS -lt $end ] || fail "never came true: $*"
        sleep 0.05
    done
}

# serve NAME OPTIONS...: starts a server; its port is in $NAME, its process in $NAME_pid.
serve() {
    local name=$1 line
    shift
    rm -f "serve.$name" # of an earlier one of that name
    "$vrx" serve "$@" --quiet >"serve.$name" 2>&1 &
    started+=($!)
    declare -g "${name}_pid=$!"
    eventually grep -q listening "serve.$name"
    line=$(<"serve.$name")
    declare -g "$name=${line##*:}"
}

# free_port NAME: a port that nobody listens on, in $NAME.
free_port() {
    serve "$1"
    local pid=${1}_pid
    kill "${!pid}"
    wait "${!pid}" 2>/dev/null
}

# pump PORT IN OUT OPTIONS...
pump() {
    local port=$1
    shift
    "$vrx" pump "$@" --servport "$port" --plugin "$plugin"
}

listens() { (exec 3<>"/dev/tcp/127.0.0.1/$1"); }

# block PAGE LANGUAGE N: what stands in the Nth code block of that language.
block() { awk -v fence="\`\`\`$2" -v n="$3" '/^```/ { inside = !inside; shown = inside && $0 == fence && ++count == n; next } shown' "$1"; }

# errors_of PORT: how much a server has had to refuse.
errors_of() { "$vrx" send status --servport "$1" --plugin "$plugin" | sed 's/.* errors=\([0-9]*\) .*/\1/'; }

# same_samples A B
same_samples() { cmp <(sox "$1" -t s32 -) <(sox "$2" -t s32 -); }

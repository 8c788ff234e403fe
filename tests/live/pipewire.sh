#!/bin/bash
# Runs vrx live as a client of a PipeWire of the test's own, without a session bus, and compares what it gives, frame by
# frame, with what went in.
#
#   pipewire.sh VRX NOISE     NOISE: the program host_noise
#
# Ends with 77 where PipeWire is not installed.
set -uo pipefail
vrx=$(readlink -f "$1") noise=$(readlink -f "$2")
for program in pipewire pw-jack; do
    command -v $program >/dev/null || { echo "skipped: $program is not installed (script/setup live)"; exit 77; }
done
work=$(mktemp -d)
started=()
leave() {
    kill "${started[@]}" 2>/dev/null
    wait
    rm -rf "$work"
}
trap leave EXIT
trap 'exit 1' INT TERM
export HOME=$work XDG_RUNTIME_DIR=$work PIPEWIRE_LATENCY=256/48000
unset DBUS_SESSION_BUS_ADDRESS DISPLAY

# start FILE COMMAND...: what it prints goes to the file
start() {
    "${@:2}" >"$work/$1" 2>&1 &
    started+=("$!")
}
# await FILE TEXT: until the program has printed it
await() {
    local look
    for ((look = 0; look < 400; look++)); do
        grep -qs "$2" "$work/$1" && return
        sleep 0.05
    done
    echo "\"$2\" does not come:" && cat "$work/$1" && exit 1
}

start pipewire pipewire
until [ -S "$work/pipewire-0" ]; do kill -0 "${started[0]}" || exit 1; sleep 0.05; done
start serve "$vrx" serve --quiet --process invert
await serve listening
start live pw-jack "$vrx" live --servport "$(sed -n 's/.*listening on .*:\([0-9]*\)$/\1/p' "$work/serve")" --latency 4096
live=${started[-1]}
await live 'ready: 2 channels at 48000 Hz, period 256, block 256, latency 4096 frames'
# On a busy machine PipeWire leaves a client out of a cycle now and then: another try then.
right='^delay 4096 frames: wet ([5-9][0-9]|100) %'
for ((try = 0; try < 60; try++)); do
    pw-jack "$noise" vrx:in_1 vrx:out_1 4096 1 0 | tee "$work/heard"
    grep -qE "$right" "$work/heard" && break
done
grep -qE "$right" "$work/heard" || exit 1
kill -TERM "$live"
wait "$live" || { cat "$work/live"; exit 1; }
await live 'vrx: .* blocks of 256 frames'

#!/bin/sh
# Counts what PumpAudio does per call, from outside, and prints rows like those of the benchmarks (JSON).
#
#   bench/counts.sh BUILD_FOLDER
#
# Each figure is a difference between two numbers of calls, so that starting and connecting drop out.
set -eu
blocks=$1/bench_blocks
folder=$(mktemp -d)
"$blocks" serve >"$folder/port" &
server=$!
trap 'kill $server; rm -rf "$folder"' EXIT
while [ ! -s "$folder/port" ]; do sleep 0.01; done
port=$(cat "$folder/port")

# trace WORDS CALLS: how often each system call was made, as lines "NAME COUNT".
trace() {
    strace -f -c -U name,calls -o "$folder/trace" "$blocks" pump "$port" "$1" "$2"
    awk 'NF == 2 && $2 ~ /^[0-9]+$/ && $1 != "total"' "$folder/trace"
}

# system_calls WORDS: the row. The watchdog's sleep between its ticks is left out.
system_calls() {
    trace "$1" 0 >"$folder/none"
    trace "$1" 10000 >"$folder/many"
    awk -v words="$1" '
        FNR == NR { none[$1] = $2; next }
        $1 == "sendto" { send = ($2 - none[$1]) / 10000; next }
        $1 == "recvfrom" { receive = ($2 - none[$1]) / 10000; next }
        $1 != "clock_nanosleep" { others += ($2 - none[$1]) / 10000 }
        END {
            printf "{\"name\": \"PumpAudio system calls/%d words\"", words
            printf ", \"count send per call\": %f, \"limit count send per call\": 1", send
            printf ", \"count recv per call\": %f, \"limit count recv per call\": 1", receive
            printf ", \"count others per call\": %f, \"limit count others per call\": 0}", others
        }' "$folder/none" "$folder/many"
}

# collected MODE WORDS CALLS: user-space instructions of the calls. callgrind takes every byte that a string move
# instruction copies for an instruction of its own, so the C library is told to copy without it.
collected() {
    GLIBC_TUNABLES=glibc.cpu.x86_rep_movsb_threshold=1000000000 valgrind --tool=callgrind --callgrind-out-file=/dev/null '--toggle-collect=*Once*' \
        "$blocks" "$1" "$port" "$2" "$3" 2>&1 | awk '/Collected/ { print $4 }'
}

per_call() {
    echo $((($(collected "$1" "$2" 200) - $(collected "$1" "$2" 100)) / 100))
}

# instructions WORDS: the row, both sides with a second thread. Allowed: 400, and 0.85 for each word in and out.
instructions() {
    beyond=$(($(per_call pump "$1") - $(per_call loop "$1")))
    printf '{"name": "PumpAudio user-space instructions/%d words"' "$1"
    printf ', "count beyond the bare loop": %d' "$beyond"
    printf ', "limit count beyond the bare loop": %d}' $((400 + 170 * $1 / 100))
}

printf '{"benchmarks": [%s' "$(system_calls 1024)"
for words in 16 1024 4096; do printf ', %s' "$(instructions $words)"; done
printf ']}\n'

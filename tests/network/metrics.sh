#!/bin/bash
# What examples/vrx-metrics prints is what a Prometheus text file may hold.
#
#   metrics.sh VRX PLUGIN SCRIPT
script=$(realpath "$3")
. "$(dirname "$0")/support.sh"
need jq sox
PATH=$(dirname "$vrx"):$PATH
serve server --channels 1
sox -n -r 8000 -c 1 -b 16 in.wav synth 1 sine 440
pump "$server" in.wav out.wav --block 80 >/dev/null || fail "no block came through"
"$script" "$server" >vrx.prom || fail "no figures"
! grep -vE '^(# TYPE [a-z_]+ (counter|gauge)|[a-z_]+\{port="[0-9]+"\} [0-9.]+)$' vrx.prom || fail "no line of Prometheus"
for line in "vrx_serve_blocks_total{port=\"$server\"} 100" "vrx_serve_clients{port=\"$server\"} 1" \
    "# TYPE vrx_serve_blocks_total counter" "# TYPE vrx_serve_busy gauge" "vrx_serve_latency{port=\"$server\"} 0"; do
    grep -qxF "$line" vrx.prom || fail "'$line' is missing in: $(<vrx.prom)"
done
[ "$(wc -l <vrx.prom)" -eq 14 ] || fail "not seven figures: $(<vrx.prom)"
! "$script" 1 >nothing.prom 2>/dev/null || fail "no server, and no failure"

#!/bin/bash
# Three servers behind HAProxy, with the configuration that docs/farm.md shows, and 50 clients: one server is killed
# and one drained in mid-run, and no client loses a block.
#
#   farm.sh VRX PLUGIN DOCS_FARM_MD
page=$(realpath "$3")
. "$(dirname "$0")/support.sh"
need haproxy perl sox jq
clients=50

for name in a b c; do serve $name --pin-frames 256 --channels 1; done
free_port front
block "$page" haproxy 1 |
    sed "s/:7000$/:$front/; s/:7001$/:$a/; s/:7002$/:$b/; s/:7003$/:$c/; s|/run/haproxy/admin.sock|$work/admin|" >haproxy.cfg
haproxy -c -f haproxy.cfg >haproxy.log 2>&1 || fail "haproxy does not take the configuration: $(<haproxy.log)"
haproxy -db -f haproxy.cfg >>haproxy.log 2>&1 &
started+=($!)
eventually listens "$front"

# administer COMMAND...: to haproxy's own socket
administer() { perl -MIO::Socket::UNIX -e '$s = IO::Socket::UNIX->new(Peer => shift) or die; print $s "@ARGV\n"; print <$s>' admin "$@"; }
status() { "$vrx" send 'status json' --servport "$1" --plugin "$plugin"; }
clients_of() { status "$1" | jq '.clients - 1'; }
all_connected() { [ $(($(clients_of "$a") + $(clients_of "$b") + $(clients_of "$c"))) -ge $clients ]; }

sox -n -r 8000 -c 1 -b 16 in.wav synth 12 pinknoise gain -6
for ((i = 0; i < clients; ++i)); do
    pump "$front" in.wav out$i.wav --paced --retries 50 --samples s32 --json >run$i.json 2>run$i.err &
    pumps[i]=$!
done
started+=("${pumps[@]}")
eventually all_connected
share=("$(clients_of "$a")" "$(clients_of "$b")" "$(clients_of "$c")")
for name in a b c; do status "${!name}" >before.$name; done
sleep 2 # of audio
for name in a b c; do status "${!name}" >after.$name; done

a_is_down() { administer show stat | grep -q '^servers,a,.*,DOWN,'; }
all_are_at_c() { [ "$(clients_of "$b")" -eq 0 ] && [ "$(clients_of "$c")" -ge $clients ]; }
{ kill -9 "$a_pid" && wait "$a_pid"; } 2>/dev/null
eventually a_is_down
administer set server servers/b state drain >/dev/null
administer shutdown sessions server servers/b >/dev/null
eventually all_are_at_c

lost=0 retried=0
for ((i = 0; i < clients; ++i)); do
    wait "${pumps[i]}" || fail "client $i: $(<run$i.err)"
    same_samples in.wav out$i.wav || fail "client $i: samples differ"
    lost=$((lost + $(jq .failed run$i.json)))
    retried=$((retried + $(jq .retried run$i.json)))
done
[ $lost -eq 0 ] || fail "$lost blocks were lost"
[ $retried -gt 0 ] || fail "nobody had to send a block again: nothing was tried"

# Each by its own clock: the three are asked one after another.
rates=()
for name in a b c; do
    rates+=("$(jq -s '(.[1].blocks - .[0].blocks) / (.[1].uptime - .[0].uptime) | round' before.$name after.$name)")
done
sum=$((rates[0] + rates[1] + rates[2]))
for each in "${rates[@]}"; do
    # within 10 % of a third
    [ $((each * 30)) -ge $((sum * 9)) ] && [ $((each * 30)) -le $((sum * 11)) ] || fail "blocks are spread unevenly: ${rates[*]}"
done
echo "clients per server: ${share[*]}; blocks per second: ${rates[*]}"
echo "$clients clients, $(jq -s 'map(.blocks) | add' run*.json) blocks, $lost lost, $retried sent again"

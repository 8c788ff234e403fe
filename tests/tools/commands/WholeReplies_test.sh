#!/bin/sh
# Pumps blocks of 2,040 words between two network namespaces of its own, over a link of 100 Mbit/s with packets of 1,500
# bytes and no offloads, where a reply arrives in pieces. Collected, every sample has to be right, also when the
# server cuts its replies itself; single receives are shown to fail. Ends with 77, skipped, where the machine allows no
# namespaces.
#
#   WholeReplies_test.sh VRX PLUGIN
set -eu
vrx=$1
plugin=$2
here=vrx-here-$$
there=vrx-there-$$
folder=$(mktemp -d)
server=

skip() {
    echo "skipped: $*"
    exit 77
}

clean_up() {
    [ -z "$server" ] || kill "$server" 2>/dev/null || true
    ip netns delete $here 2>/dev/null || true
    ip netns delete $there 2>/dev/null || true
    rm -rf "$folder"
}

[ "$(id -u)" -eq 0 ] || skip "only root may make network namespaces"
for tool in ip tc ethtool sox; do
    command -v $tool >/dev/null || skip "$tool is missing (script/setup ci installs it)"
done
trap clean_up EXIT
ip netns add $here 2>"$folder/log" && ip netns add $there 2>"$folder/log" || skip "$(cat "$folder/log")"
ip link add vrx-a netns $here type veth peer name vrx-b netns $there 2>"$folder/log" || skip "$(cat "$folder/log")"

# in NAMESPACE DEVICE ADDRESS: one end of the link
set_up() {
    ip -n "$1" address add "$3/24" dev "$2"
    ip -n "$1" link set "$2" mtu 1500 up
    ip netns exec "$1" ethtool -K "$2" tso off gso off gro off >/dev/null
    ip netns exec "$1" tc qdisc add dev "$2" root tbf rate 100mbit burst 3000 latency 400ms 2>"$folder/log" ||
        skip "$(cat "$folder/log")"
}
set_up $here vrx-a 10.213.7.1
set_up $there vrx-b 10.213.7.2

# noise NAME BLOCKS
noise() { sox -D -R -n -r 48000 -b 16 "$folder/$1.wav" synth $(($2 * 2040))s noise gain -1; }
noise long 2000
noise short 200

# serve OPTIONS...: a server at the other end; sets $port
serve() {
    : >"$folder/listening"
    ip netns exec $there "$vrx" serve --bind 10.213.7.2 --channels 1 --quiet "$@" >"$folder/listening" 2>/dev/null &
    server=$!
    until grep -q listening "$folder/listening"; do
        kill -0 $server 2>/dev/null || { echo "the server ended"; exit 1; }
    done
    port=$(sed 's/.*://' "$folder/listening")
}

stop() {
    kill $server
    wait $server || true
    server=
}

# pump NAME OPTIONS...
pump() {
    input=$folder/$1.wav
    shift
    ip netns exec $here "$vrx" pump "$input" "$folder/out.wav" --plugin "$plugin" --server 10.213.7.2 \
        --servport "$port" --block 2040 --samples f32 --force "$@"
}

right() { cmp -s "$input" "$folder/out.wav"; }

serve
pump long --replies whole
right || { echo "collected replies were not right"; exit 1; }
if pump short --replies single --retries 0 2>&1 && right; then
    skip "single receives were right, too: this link keeps replies together"
fi
stop

serve --faults pieces=700
pump short --replies auto
right || { echo "collected replies that the server cuts were not right"; exit 1; }
stop
echo "2200 blocks of 2040 words, all right"

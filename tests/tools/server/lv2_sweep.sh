#!/bin/bash
# Puts noise through every installed LV2 plug-in that fits a stream, for two clients one after the other. Says which
# cannot be run, and which do not give both the same. Takes minutes and is no test: others' plug-ins may fail.
#
#   lv2_sweep.sh VRX PLUGIN
. "$(dirname "$0")/../../network/support.sh"
need sox

# run URI CHANNELS: "" or what went wrong
run() {
    local server line port client
    exec 3< <(exec "$vrx" serve --quiet --channels "$2" --process "lv2=$1" 2>serve.err)
    server=$!
    read -r line <&3 || { tail -n 1 serve.err; return; }
    port=${line##*:}
    for client in 1 2; do
        timeout 60 "$vrx" pump "in$2.wav" "out$client.wav" --servport "$port" --plugin "$plugin" --samples f32 --bits float \
            --block 64 --force >pump.log 2>&1 || tail -n 1 pump.log
    done
    kill "$server"
    wait "$server" || echo "the server ended with exit code $?"
    same_samples out1.wav out2.wav &>/dev/null || echo "the second client got something else"
}

"$vrx" serve --process lv2=list |
    awk '/^[^ ]/ { uri = $0 } match($0, /[0-9]+ audio inputs?, /) { print uri, $0 }' |
    sed -E 's/ .*: ([0-9]+) audio inputs?, ([0-9]+) .*/ \1 \2/' >plugins
fit=0 odd=0
while read -r uri inputs outputs; do
    [ "$inputs" -ge 1 ] && [ "$inputs" -eq "$outputs" ] || continue
    fit=$((fit + 1))
    [ -f "in$inputs.wav" ] || sox -n -r 48000 -c "$inputs" -b 16 "in$inputs.wav" synth 0.1 pinknoise gain -6
    run "$uri" "$inputs" >wrong 2>&1
    [ -s wrong ] || continue
    odd=$((odd + 1))
    echo "$uri: $(<wrong)"
done <plugins
echo "$(wc -l <plugins) plug-ins, $fit of them fit a stream, $((fit - odd)) of these without a remark"

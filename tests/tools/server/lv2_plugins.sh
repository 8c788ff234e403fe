#!/bin/bash
# Runs real LV2 plug-ins on the blocks of vrx serve and through lv2apply, with the same values: the results must be
# equal within 1e-6. Skipped (77) where lv2apply or a package of plug-ins is missing: script/setup lv2.
#
#   lv2_plugins.sh VRX PLUGIN [--table]     --table: prints a row per plug-in
set -u
vrx=$1 plugin=$2 table=${3-}
for need in lv2apply sox; do
    command -v $need >/dev/null || { echo "skipped: $need is missing (script/setup lv2)"; exit 77; }
done
for bundle in mda amp-swh darc calf lsp-plugins; do
    [ -d /usr/lib/lv2/$bundle.lv2 ] || { echo "skipped: no $bundle.lv2 (script/setup lv2)"; exit 77; }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
for channels in 1 2; do
    sox -n -r 48000 -c $channels -b 32 -e floating-point in$channels.wav synth 0.2 pinknoise gain -6 fade 0 0.2 0.05
done

# peak_of FACTOR SOX_INPUT...: the largest sample but for its sign, of an eighth of the signal, times 8 / FACTOR; nothing without inputs.
peak_of() {
    local factor=$1
    shift
    sox -V1 "$@" -n vol "$factor" stat 2>&1 |
        awk -v factor="$factor" '/^(Maximum|Minimum) amplitude/ { size = $3 < 0 ? -$3 : $3; if (size > peak) peak = size; found = 1 }
                                 END { if (found) printf "%.3g", 8 * peak / factor }'
}

# frames per block: what a plug-in does once per run comes out differently where lv2apply runs frame by frame
failures=0
# compare CHANNELS BLOCK URI [SYMBOL VALUE]...
compare() {
    local channels=$1 block=$2 uri=$3 step=lv2=$3 settings=() server difference peak
    shift 3
    while [ $# -gt 0 ]; do
        settings+=(-c "$1" "$2")
        step+=";$1=$2"
        shift 2
    done
    rm -f ours.wav theirs.wav
    lv2apply -i in$channels.wav -o theirs.wav "${settings[@]}" "$uri" >lv2apply.log 2>&1 || cat lv2apply.log
    coproc SERVE { exec "$vrx" serve --quiet --channels $channels --process "$step" 2>&1; }
    server=$SERVE_PID
    read -r line <&"${SERVE[0]}"
    "$vrx" pump in$channels.wav ours.wav --servport "${line##*:}" --plugin "$plugin" --samples f32 --bits float \
        --block "$block" >pump.log 2>&1 || { echo "$line"; cat pump.log; }
    kill "$server" && wait "$server"
    # An eighth of each, so that sox clips neither; the difference then enlarged, as sox prints six decimals.
    difference=$(peak_of 1000 -m -v 0.125 ours.wav -v -0.125 theirs.wav)
    peak=$(peak_of 1 -v 0.125 theirs.wav)
    [ -z "$table" ] || echo "| \`$uri\` | $channels | $block | $difference |"
    awk -v d="$difference" -v p="$peak" 'BEGIN { exit !(d != "" && d + 0 <= 1e-6 && p > 1e-3) }' && return
    echo "$uri: differs by '$difference' from lv2apply, whose peak is '$peak'"
    failures=$((failures + 1))
}

mda=http://drobilla.net/plugins/mda swh=http://plugin.org.uk/swh-plugins x42=http://gareus.org/oss/lv2
calf=http://calf.sourceforge.net/plugins lsp=http://lsp-plug.in/plugins/lv2
compare 2 64 $mda/Ambience size 0.3
compare 2 64 $mda/Delay
compare 2 64 $mda/Overdrive drive 0.6
compare 2 64 $mda/MultiBand
compare 2 1 $mda/Leslie
compare 1 64 $swh/amp gain -3.5
compare 1 64 $swh/lowpass_iir cutoff 3000 stages 2
compare 1 64 $swh/valve
compare 1 64 $swh/flanger
compare 1 64 $swh/foldover
compare 1 64 $swh/djFlanger
compare 2 64 $x42/darc#stereo
compare 2 64 $calf/Compressor
compare 2 64 $calf/Reverb
compare 2 64 $calf/Saturator drive 4
compare 2 64 $lsp/comp_delay_stereo
compare 2 64 $lsp/compressor_stereo
compare 2 64 $lsp/gate_stereo

# Two clients at a time, each with a plug-in of its own: neither hears the other's echoes.
lv2apply -i in2.wav -o theirs.wav $mda/Delay >/dev/null
coproc SERVE { exec "$vrx" serve --quiet --process lv2=$mda/Delay 2>&1; }
read -r line <&"${SERVE[0]}"
for client in 1 2; do
    "$vrx" pump in2.wav ours$client.wav --servport "${line##*:}" --plugin "$plugin" --samples f32 --bits float --block 32 >pump$client.log 2>&1 &
    clients[client]=$!
done
wait "${clients[@]}" || failures=$((failures + 1))
kill "$SERVE_PID"
sox -V1 ours1.wav -t f32 ours1.raw && sox -V1 ours2.wav -t f32 ours2.raw && sox -V1 theirs.wav -t f32 theirs.raw
cmp ours1.raw theirs.raw && cmp ours2.raw theirs.raw || failures=$((failures + 1))

exit $((failures > 0))

#!/bin/bash
# The recipe for TLS on both ends as docs/network.md shows it: stunnel beside the server and beside the host, each with
# a certificate. Says how much time the two of them add to a block.
#
#   tls.sh VRX PLUGIN DOCS_NETWORK_MD
page=$(realpath "$3")
. "$(dirname "$0")/support.sh"
need stunnel openssl sox jq

# Our certificates, and those of somebody else who follows the same recipe.
block "$page" sh 1 >certificates
mkdir theirs
sh -e certificates >openssl.log 2>&1 && (cd theirs && sh -e ../certificates) >>openssl.log 2>&1 || fail "no certificates: $(<openssl.log)"

# server_end DOOR, client_end DOOR OUTER: the page's two configurations
server_end() { block "$page" ini 1 | sed "s|= 7443$|= 127.0.0.1:$1|; s|:7000$|:$inner|"; }
client_end() { block "$page" ini 2 | sed "s|:7000$|:$1|; s|SERVER:7443$|127.0.0.1:$2|"; }
# tunnel NAME: starts stunnel with the configuration from standard input, which is no pipe: that would take a subshell
tunnel() {
    sed "s|/etc/stunnel|$work|" >"$1.conf"
    stunnel "$1.conf" >"$1.log" 2>&1 &
    started+=($!)
    eventually grep -q 'Configuration successful' "$1.log"
}
serve inner --process invert --pin-frames 64
for door in outer here foreign bare; do free_port $door; done
tunnel server < <(server_end "$outer")
tunnel client < <(client_end "$here" "$outer")
tunnel stranger < <(client_end "$foreign" "$outer" | sed 's|/client|/theirs/client|')
tunnel nobody < <(client_end "$bare" "$outer" | sed '/^cert =/d; /^key =/d')

sox -n -r 48000 -c 2 -b 16 in.wav synth 2 pinknoise gain -6
pump "$inner" in.wav plain.wav --json >plain.json || fail "without a tunnel"
pump "$here" in.wav tls.wav --json >tls.json || fail "the right certificate does not pass"
same_samples plain.wav tls.wav || fail "the tunnel changes samples"
! same_samples in.wav tls.wav >/dev/null || fail "the samples were not processed"
for stranger in "$foreign" "$bare" "$outer"; do # a foreign certificate, none, plain text
    ! pump "$stranger" in.wav nothing.wav >refused.log 2>&1 || fail "a stranger was served"
done
[ "$(errors_of "$inner")" = 0 ] || fail "something foreign reached the server"

# Servers that are not ours, by another authority and by another name: the client's tunnel does not talk to them.
for false in theirs/server client; do
    free_port false_outer
    free_port there
    tunnel false < <(server_end "$false_outer" | sed "/^CAfile/d; /^verify/d; /^require/d; s|/server|/$false|")
    tunnel careful < <(client_end "$there" "$false_outer")
    ! pump "$there" in.wav nothing.wav >refused.log 2>&1 || fail "a foreign server was believed: $false"
    grep -q 'CERT: ' careful.log || fail "it was refused for another reason: $(<careful.log)"
done

jq -rn --slurpfile plain plain.json --slurpfile tls tls.json 'def us: .[0].milliseconds.p50 * 1000 | round;
    "median round trip of 64 stereo frames: \($plain | us) us, through TLS \($tls | us) us"'

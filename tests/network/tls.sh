#!/bin/bash
# The recipe for TLS on both ends: stunnel beside the server and beside the host, each with a certificate. Says how
# much time the two of them add to a block.
#
#   tls.sh VRX PLUGIN
. "$(dirname "$0")/support.sh"
need stunnel openssl sox jq

# certificate NAME AUTHORITY
authority() { openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 -subj "/CN=$1" -keyout "$1.key" -out "$1.pem" 2>/dev/null; }
certificate() {
    openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj "/CN=$1" -keyout "$1.key" -out "$1.csr" 2>/dev/null
    openssl x509 -req -in "$1.csr" -CA "$2.pem" -CAkey "$2.key" -CAcreateserial -days 2 -out "$1.pem" 2>/dev/null
}
authority ours
authority theirs
certificate server ours
certificate client ours
certificate stranger theirs

# tunnel NAME LINES: starts stunnel with these lines in its one service
tunnel() {
    printf 'foreground = yes\npid =\nsocket = l:TCP_NODELAY=1\nsocket = r:TCP_NODELAY=1\n[vrx]\n%b' "$2" >"$1.conf"
    stunnel "$1.conf" >"$1.log" 2>&1 &
    started+=($!)
    eventually grep -q 'Configuration successful' "$1.log"
}
serve inner --process invert --pin-frames 64
free_port outer
free_port here
free_port foreign
free_port bare
tunnel server "accept = 127.0.0.1:$outer\nconnect = 127.0.0.1:$inner\ncert = server.pem\nkey = server.key\nCAfile = ours.pem\nverifyChain = yes\nrequireCert = yes\n"
far="client = yes\nconnect = 127.0.0.1:$outer\nCAfile = ours.pem\nverifyChain = yes\ncheckHost = server\n"
tunnel client "accept = 127.0.0.1:$here\ncert = client.pem\nkey = client.key\n$far"
tunnel stranger "accept = 127.0.0.1:$foreign\ncert = stranger.pem\nkey = stranger.key\n$far"
tunnel nobody "accept = 127.0.0.1:$bare\n$far"

sox -n -r 48000 -c 2 -b 16 in.wav synth 2 pinknoise gain -6
pump "$inner" in.wav plain.wav --json >plain.json || fail "without a tunnel"
pump "$here" in.wav tls.wav --json >tls.json || fail "the right certificate does not pass"
same_samples plain.wav tls.wav || fail "the tunnel changes samples"
! same_samples in.wav tls.wav >/dev/null || fail "the samples were not processed"
for stranger in "$foreign" "$bare" "$outer"; do # a foreign certificate, none, plain text
    ! pump "$stranger" in.wav nothing.wav >refused.log 2>&1 || fail "a stranger was served"
done
# The server has only seen the two that may: each connects and asks for the pins.
status=$("$vrx" send status --servport "$inner" --plugin "$plugin")
case $status in *" errors=0 "*) ;; *) fail "something foreign reached the server: $status" ;; esac

# A server that is not ours: the client's tunnel does not talk to it.
free_port false_port
free_port there
tunnel false "accept = 127.0.0.1:$false_port\nconnect = 127.0.0.1:$inner\ncert = stranger.pem\nkey = stranger.key\n"
tunnel careful "accept = 127.0.0.1:$there\ncert = client.pem\nkey = client.key\n${far/127.0.0.1:$outer/127.0.0.1:$false_port}"
! pump "$there" in.wav nothing.wav >refused.log 2>&1 || fail "a foreign server was believed"

jq -rn --slurpfile plain plain.json --slurpfile tls tls.json 'def us: .[0].milliseconds.p50 * 1000 | round;
    "median round trip of 64 stereo frames: \($plain | us) us, through TLS \($tls | us) us"'

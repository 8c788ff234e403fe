#!/bin/bash
# The recipe for ssh as docs/network.md shows it: a forwarded port with a key that may do nothing else.
#
#   ssh.sh VRX PLUGIN DOCS_NETWORK_MD
page=$(realpath "$3")
. "$(dirname "$0")/support.sh"
need ssh sshd ssh-keygen sox jq

serve inner --process invert --pin-frames 64
free_port door
ssh-keygen -q -t ed25519 -N '' -f host
ssh-keygen -q -t ed25519 -N '' -f ours
ssh-keygen -q -t ed25519 -N '' -f stranger
block "$page" text 1 | sed "s|127.0.0.1:7000|127.0.0.1:$inner|; s|ssh-ed25519 AAAA.*|$(<ours.pub)|" >authorized
cat >sshd.conf <<CONF
ListenAddress 127.0.0.1
Port $door
HostKey $work/host
AuthorizedKeysFile $work/authorized
PasswordAuthentication no
KbdInteractiveAuthentication no
UsePAM no
PermitRootLogin prohibit-password
StrictModes no
PidFile none
CONF
[ "$(id -u)" -ne 0 ] || mkdir -p /run/sshd
/usr/sbin/sshd -D -e -f sshd.conf >sshd.log 2>&1 &
started+=($!)
eventually listens "$door"
echo "[127.0.0.1]:$door $(<host.pub)" >known

cat >here.conf <<CONF
Port $door
IdentitiesOnly yes
IdentityAgent none
UserKnownHostsFile known
StrictHostKeyChecking yes
BatchMode yes
CONF
# forward KEY LOCAL TARGET: the page's command; exits with ssh's code when that ends
forward() {
    local command
    command=$(block "$page" sh 2 | sed "s|127.0.0.1:7000:127.0.0.1:7000|127.0.0.1:$2:127.0.0.1:$3|; s|user@SERVER|$(id -un)@127.0.0.1|")
    eval "exec ${command/ssh/ssh -F here.conf -i $1}"
}
free_port here
forward ours "$here" "$inner" >ssh.log 2>&1 &
started+=($!)
eventually listens "$here"

sox -n -r 48000 -c 2 -b 16 in.wav synth 2 pinknoise gain -6
pump "$inner" in.wav plain.wav --json >plain.json || fail "without a tunnel"
pump "$here" in.wav ssh.wav --json >ssh.json || fail "the right key does not pass: $(<ssh.log)"
same_samples plain.wav ssh.wav || fail "the tunnel changes samples"

free_port nowhere
for key in stranger /dev/null; do # a foreign key, none
    ! (forward $key "$nowhere" "$inner") >refused.log 2>&1 || fail "let in with $key"
    grep -q 'Permission denied' refused.log || fail "refused for another reason: $(<refused.log)"
    ! listens "$nowhere" 2>/dev/null || fail "a stranger's port listens"
done
! pump "$door" in.wav nothing.wav >refused.log 2>&1 || fail "plain text passes"
[ "$(errors_of "$inner")" = 0 ] || fail "something foreign reached the server"

# The right key opens no other port, and runs no command.
serve other
forward ours "$nowhere" "$other" >elsewhere.log 2>&1 &
started+=($!)
eventually listens "$nowhere"
! pump "$nowhere" in.wav nothing.wav >refused.log 2>&1 || fail "the key opened another port"
! ssh -F here.conf -i ours -T "$(id -un)@127.0.0.1" true >command.log 2>&1 || fail "the key ran a command"

jq -rn --slurpfile plain plain.json --slurpfile ssh ssh.json 'def us: .[0].milliseconds.p50 * 1000 | round;
    "median round trip of 64 stereo frames: \($plain | us) us, through ssh \($ssh | us) us"'

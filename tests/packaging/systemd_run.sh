#!/bin/bash
# The units as systemd runs them, with all of their restrictions: in namespaces of this test, where systemd is the first
# process and knows no other units. Skipped where that is not possible: without root or a cgroup2 file system.
#
#   systemd_run.sh VRX PLUGIN FOLDER_OF_UNITS
units=$(realpath "$3")
skip() { echo "skipped: $*"; exit 77; }
[ "$(id -u)" -eq 0 ] || skip "needs root"
cgroups=$(findmnt -n -t cgroup2 -o TARGET | head -n 1)
[ -w "$cgroups/cgroup.procs" ] || skip "needs a cgroup2 file system"
unshare --net --mount --pid --fork --ipc --uts --cgroup true 2>/dev/null || skip "needs namespaces"
[ -n "${VRX_OWN_NETWORK-}" ] || VRX_OWN_NETWORK=yes exec unshare --net "$0" "$@"

. "$(dirname "$0")/../network/support.sh"
need /lib/systemd/systemd systemctl ip jq nsenter setpriv sox
group=$(mktemp -d "$cgroups/vrx-test-XXXXXX") || fail "no cgroup of its own"
init=
halt() {
    local status=$?
    [ -z "$init" ] || { kill -KILL "$init" && wait; } 2>/dev/null
    find "$group" -depth -type d -exec rmdir {} \;
    (exit $status)
    finish
}
trap halt EXIT

ip link set lo up
ip address add 192.0.2.1/32 dev lo # not the units' localhost

# What systemd gets to see: the machine's files, read-only, and places of its own where something is written.
mkdir units
for unit in vrx-serve.service vrx-serve@.service; do sed 's|/usr/bin/vrx|/run/vrx|' "$units/$unit" >"units/$unit"; done
for target in sysinit basic network shutdown idle; do printf '[Unit]\nDefaultDependencies=no\n' >"units/$target.target"; done
# The same restrictions around a program that tries what is not allowed, a line at a time; its exit code is the first
# line that came through.
cat >attempts <<'TRIES'
renice -n 5 $$
unshare --user true
perl -MSocket -e 'socket(my $s, AF_INET6, SOCK_STREAM, 0) or exit 1'
cd /home
test -e /dev/kmsg
test -e /proc/cpuinfo
TRIES
sed 's|^Type=.*|Type=oneshot|; /^Restart=/d; s|^ExecStart=.*|ExecStart=/bin/sh /run/try|' units/vrx-serve.service >units/try.service
echo 'n=0; while read -r line; do n=$((n + 1)); if sh -c "$line"; then exit $n; fi; done </run/attempts' >try
step=invert
[ ! -d /usr/lib/lv2/mda.lv2 ] || step=lv2=http://drobilla.net/plugins/mda/Delay
cat >boot <<BOOT
set -e
echo \$\$ >$group/cgroup.procs
exec unshare --mount --pid --fork --ipc --uts --cgroup --kill-child sh -ec '
mount --make-rprivate /
mount -o remount,bind,ro /
mount -t proc proc /proc
mount --bind -o ro /proc/sys /proc/sys
mount -t tmpfs tmpfs /run
cp -r units attempts try "$vrx" /run
for folder in /tmp /var/tmp /etc/default; do mount -t tmpfs tmpfs \$folder; done
echo "VRX_SERVE_OPTIONS=\"--process invert\"" >/etc/default/vrx-serve
echo "VRX_SERVE_OPTIONS=\"--process $step --bind 0.0.0.0\"" >/etc/default/vrx-serve-7001
echo "VRX_SERVE_OPTIONS=\"--process louder\"" >/etc/default/vrx-serve-7002
umount -R /sys/fs/cgroup
mount -t cgroup2 cgroup2 /sys/fs/cgroup
exec env -i PATH=/usr/sbin:/usr/bin container=test SYSTEMD_UNIT_PATH=/run/units SYSTEMD_GENERATOR_PATH=/run/none \
    /lib/systemd/systemd --system --unit=idle.target --show-status=no --log-target=null'
BOOT
setpriv --pdeathsig KILL sh boot >boot.log 2>&1 &
first=$!
has_child() { read -r init _ <"/proc/$first/task/$first/children"; [ -n "$init" ]; }
eventually has_child
inside() { nsenter -t "$init" -m -p -- "$@"; }
property() { inside systemctl show --value -p "$2" "$1"; }
runs() { inside systemctl is-system-running 2>/dev/null | grep -qE 'running|degraded'; }
eventually runs

inside systemctl start vrx-serve vrx-serve@7001 || fail "not started: $(<boot.log)"
sox -n -r 48000 -c 2 -b 16 in.wav synth 1 pinknoise gain -6
pump 7000 in.wav inverted.wav --samples f32 >pump.log || fail "the service does not serve"
pump 7000 inverted.wav again.wav --samples f32 >pump.log || fail "the service does not serve twice"
same_samples in.wav again.wav && ! same_samples in.wav inverted.wav >/dev/null || fail "it does not do what /etc/default says"
pump 7001 in.wav out.wav --samples f32 >pump.log || fail "the service of a port does not serve"

for unit in vrx-serve vrx-serve@7001; do
    main=$(property $unit MainPID)
    inside cat "/proc/$main/status" >status
    for line in 'CapBnd:	0000000000000000' 'CapEff:	0000000000000000' 'NoNewPrivs:	1' 'Seccomp:	2'; do
        grep -qx "$line" status || fail "$unit runs without '$line'"
    done
    ! grep -q '^Uid:	0	' status || fail "$unit runs as root"
    inside touch /etc/default/written || fail "not even root may write"
    ! inside nsenter -t "$main" -m touch /etc/default/written 2>/dev/null || fail "$unit may write"
done
while read -r line; do inside sh -c "$line" >/dev/null || fail "cannot be tried here: $line"; done <attempts
inside systemctl start try 2>/dev/null || fail "the units allow: $(sed -n "$(property try ExecMainStatus)p" attempts)"
echo "a user of its own, no privileges, read-only files, $(wc -l <attempts) attempts at more refused, $step"

reaches() { timeout 1 bash -c "exec 3<>/dev/tcp/$1/7001" 2>/dev/null; }
! reaches 192.0.2.1 || fail "an address that is not this machine's own comes through"
inside sh -c 'mkdir /run/units/vrx-serve@7001.service.d
    printf "[Service]\nIPAddressAllow=192.0.2.0/24\nRestartSec=10ms\n" >/run/units/vrx-serve@7001.service.d/network.conf
    systemctl daemon-reload && systemctl restart vrx-serve@7001' || fail "the drop-in is not taken"
eventually reaches 192.0.2.1
echo "other networks only by a drop-in"

# A client with retries loses no block meanwhile.
sox -n -r 48000 -c 2 -b 16 long.wav synth 2 pinknoise gain -6
pump 7001 long.wav long.out.wav --paced --retries 100 --samples f32 --json >long.json 2>long.err &
client=$!
started+=("$client")
under_way() { [ "$("$vrx" send 'status json' --servport 7001 --plugin "$plugin" | jq .blocks)" -gt 0 ]; }
eventually under_way
restarts() { [ "$(property vrx-serve@7001 NRestarts)" = "$crashes" ] && reaches 127.0.0.1; }
for crashes in {1..7}; do # more than systemd puts up with unless it is told
    inside sh -c "kill -SEGV $(property vrx-serve@7001 MainPID)"
    eventually restarts
done
wait "$client" || fail "the client gave up: $(<long.err)"
retried=$(jq 'if .failed == 0 then .retried else 0 end' long.json)
[ "$retried" -gt 0 ] || fail "the client lost blocks, or never met a crash: $(<long.json)"
echo "started again after $crashes crashes; a client lost no block and sent $retried again"

! inside systemctl start vrx-serve@7002 2>/dev/null || fail "wrong options are no failure"
[ "$(property vrx-serve@7002 ActiveState)" = failed ] || fail "wrong options are tried again"

inside systemctl stop vrx-serve || fail "not stopped"
[ "$(property vrx-serve Result),$(property vrx-serve ExecMainStatus)" = success,0 ] || fail "it did not end by itself"

limits=/sys/fs/cgroup/$(property vrx-serve@7001 ControlGroup)
if inside test -e "$limits/memory.max" -a -e "$limits/pids.max"; then
    [ "$(inside cat "$limits/memory.max" "$limits/pids.max" | xargs)" = "2147483648 1024" ] || fail "limits are missing"
else
    echo "not tried: the limits on memory and tasks (cgroup2 has not got these controllers here)"
fi

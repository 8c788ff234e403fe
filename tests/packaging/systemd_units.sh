#!/bin/bash
# The units: nothing to complain about, a good mark for security, and a server that works under the same restrictions
# as far as they can be had without systemd as the first process.
#
#   systemd_units.sh VRX PLUGIN FOLDER_OF_UNITS
units=$(realpath "$3")
. "$(dirname "$0")/../network/support.sh"
need systemd-analyze setpriv sox

for unit in vrx-serve.service vrx-serve@.service; do
    sed "s|/usr/bin/vrx|$vrx|" "$units/$unit" >"$work/$unit"
done
complaints=$(systemd-analyze verify --man=no "$work/vrx-serve.service" "$work/vrx-serve@7001.service" 2>&1)
[ -z "$complaints" ] || fail "systemd-analyze verify: $complaints"
for unit in vrx-serve.service vrx-serve@.service; do
    mark=$(systemd-analyze security --offline=true --no-pager "$work/$unit" | sed -n 's/.*Overall exposure level for .*: \([0-9.]*\) .*/\1/p')
    awk -v mark="$mark" 'BEGIN { exit !(mark != "" && mark <= 2.0) }' || fail "$unit: exposure '$mark' is above 2.0"
    echo "$unit: exposure $mark"
done

sox -n -r 48000 -c 2 -b 16 in.wav synth 1 pinknoise gain -6
if [ "$(id -u)" -eq 0 ]; then
    # In a mount namespace of its own that is read-only, nobody, without any capability.
    unshare --mount sh -c 'mount -o remount,bind,ro / && ! touch /etc/vrx-writable 2>/dev/null && exec setpriv --no-new-privs \
        --bounding-set=-all --inh-caps=-all --reuid=65534 --regid=65534 --clear-groups "$@"' sh \
        "$vrx" serve --quiet --process gain=-6 > >(cat >confined.log) 2>&1 &
    started+=($!)
    eventually grep -q listening confined.log
    port=$(sed 's/.*://' confined.log)
    grep -q '^CapEff:[[:space:]]*0*$' "/proc/${started[-1]}/status" || fail "it has capabilities"
    pump "$port" in.wav out.wav --samples f32 >pump.log || fail "the confined server does not serve"
    echo "served as nobody, without capabilities, on a read-only file system"
else
    echo "not tried: the read-only file system (needs root)"
fi

# All system calls from start to stop are in the filter.
if command -v strace >/dev/null; then
    # members SET: the calls of a set and of the sets in it
    members() {
        systemd-analyze syscall-filter --no-pager "$1" | sed '1,2d; s/^ *//; /^#/d; /^$/d' | while read -r name; do
            case $name in @*) members "$name" ;; *) echo "$name" ;; esac
        done
    }
    # all_members START: of the sets that stand behind START in the units' filter
    all_members() {
        for set in $(sed -n "s/^SystemCallFilter=$1@/@/p" "$work/vrx-serve.service"); do members "$set"; done | sort -u
    }
    all_members '' >allowed
    all_members '~' >denied
    [ -s allowed ] && [ -s denied ] || fail "the filter was not understood"
    strace -f -o calls "$vrx" serve --quiet --process gain=-6 >traced.log 2>&1 &
    started+=($!)
    eventually grep -q listening traced.log
    pump "$(sed 's/.*://' traced.log)" in.wav out2.wav --samples f32 >pump.log || fail "the traced server does not serve"
    kill "$(head -1 calls | cut -d' ' -f1)"
    wait "${started[-1]}"
    # execve itself happens before the program begins
    sed -n 's/^[0-9]* *\([a-z_0-9]*\)(.*/\1/p' calls | sort -u | grep -vx execve >used
    refused=$(comm -23 used <(comm -23 allowed denied) | xargs)
    [ -s used ] && [ -z "$refused" ] || fail "system calls outside the filter: $refused"
    echo "$(wc -l <used) system calls, all in the filter"
else
    echo "not tried: the filter of system calls (needs strace)"
fi

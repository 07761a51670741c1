#!/bin/sh
# demo-live.sh BUILD: the same as demo.sh on a live Linux bridge, between network namespaces that it makes and removes itself.
# vanta-fdbd follows the bridge's forwarding database and listens on its ports as well. Needs root and iproute2.
set -eu

here=$(cd "$(dirname "$0")" && pwd)
bin=$(cd "${1:?usage: demo-live.sh BUILD-DIRECTORY}/bin" && pwd)
vanta=$bin/vanta
prefix=vanta-demo-$$
work=$(mktemp -d)
started=
. "$here/check.sh"
. "$here/network.sh"
trap 'stop_all; remove_network; rm -rf "$work"' EXIT
trap 'exit 1' INT TERM HUP
export PLEXO_DIR="$work/tables"
export RILO_DIR="$work/rings"
mkdir "$PLEXO_DIR"
# 77 is what a test driver takes for "not on this machine".
cannot() {
   echo "${0##*/}: $1" >&2
   exit 77
}
command -v bridge >/dev/null || cannot "needs ip and bridge; install the package iproute2"
[ "$(id -u)" = 0 ] || cannot "needs root, to make network namespaces; 'make demo' needs none"
ip netns add "$prefix-sw" 2>/dev/null || cannot "this machine does not allow network namespaces (ip netns add failed)"
# Running something in one also needs a mount point at /, which a bare chroot lacks.
ip netns exec "$prefix-sw" true 2>/dev/null || { ip netns del "$prefix-sw"; cannot "can't run programs in a network namespace here (ip netns exec failed)"; }
ip netns del "$prefix-sw"

say "six hosts on three ports of a Linux bridge"
make_network
[ $vlans = yes ] || echo "(this kernel's bridges have no VLANs: all hosts are in VLAN 1)"
start_watchers
ip netns exec "$prefix-sw" "$bin/vanta-fdbd" --statistics --bridge br0 --interface p1=Ethernet1 --interface p2=Ethernet2 \
   --interface p3=Ethernet3 &
agent=$!
started="$agent $started"
until_watched '"state":"live"'
talk h1 10.0.1.3
talk h2 10.0.10.4
talk h5 10.0.20.6
talk h5 10.0.1.1
until_watched '"address":"02:00:00:00:00:06"'
say "the table, from another process (vanta fdb show)"
"$vanta" fdb show
say "the host 02:00:00:00:00:02 is plugged in on Ethernet3"
move h2 3
talk h2 10.0.10.4
until_watched '"address":"02:00:00:00:00:02","port":"Ethernet3","moves":1,'
sleep 0.5
say "the table now"
"$vanta" fdb show
on_switch bridge -j fdb show br br0 dynamic >"$work/expected.json"
echo
check "$work/expected.json" live
kill -TERM $agent
wait $agent || fail "vanta-fdbd ended with an error"
check "$work/expected.json" stale

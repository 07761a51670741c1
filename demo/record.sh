#!/bin/sh
# record.sh [DIRECTORY]: records the demo's captures from real traffic in the network of network.sh, into demo/captures unless
# told otherwise.
#
# Near the end h2 is unplugged from its segment and plugged in on p3. What arrives on each port of the bridge is captured: p1 and
# p2 as pcap, p3 as pcapng. At the end the bridge's forwarding database is written as the kernel's own tool tells it
# (expected.json), for the demo to compare with what was learned from the captures.
#
# Needs root, a kernel whose bridges filter VLANs, and the packages iproute2, tcpdump and wireshark-common (editcap).
set -eu

here=$(cd "$(dirname "$0")" && pwd)
out=${1:-$here/captures}
prefix=vanta-record-$$
work=
captures=
. "$here/network.sh"

fail() {
   echo "record.sh: $1" >&2
   exit 1
}

clean_up() {
   for pid in $captures; do kill "$pid" 2>/dev/null || true; done
   remove_network
   [ -z "$work" ] || rm -rf "$work"
}

# capture PORT: what arrives on the port.
capture() {
   ip netns exec "$prefix-sw" tcpdump -n -i "$1" -Q in -s 96 -U -Z root -w "$work/$1.pcap" 2>"$work/$1.log" &
   captures="$captures $!"
   tries=0
   until grep -qs '^tcpdump: listening' "$work/$1.log"; do
      tries=$((tries + 1))
      [ $tries -lt 100 ] || fail "tcpdump did not start on $1: $(cat "$work/$1.log")"
      sleep 0.1
   done
}

for tool in ip bridge tcpdump editcap; do
   command -v $tool >/dev/null || fail "needs $tool; install iproute2, tcpdump and wireshark-common"
done
[ "$(id -u)" = 0 ] || fail "needs root, to make network namespaces"
trap clean_up EXIT
trap 'exit 1' INT TERM HUP
work=$(mktemp -d)

make_network
[ $vlans = yes ] || fail "this kernel's bridges can't filter VLANs (CONFIG_BRIDGE_VLAN_FILTERING); record on another one"
for n in 1 2 3; do capture "p$n"; done

talk h1 10.0.1.3
sleep 0.4
talk h2 10.0.10.4
sleep 0.4
talk h5 10.0.20.6
sleep 0.4
talk h5 10.0.1.1
sleep 1
move h2 3
talk h2 10.0.10.4
sleep 0.2
talk h6 10.0.20.5

sleep 1
for pid in $captures; do kill "$pid"; done
for pid in $captures; do wait "$pid" || true; done
captures=
on_switch bridge -j fdb show br br0 dynamic >"$work/expected.json"

mkdir -p "$out"
cp "$work/p1.pcap" "$out/port1.pcap"
cp "$work/p2.pcap" "$out/port2.pcap"
editcap -F pcapng "$work/p3.pcap" "$out/port3.pcapng"
cp "$work/expected.json" "$out/"
chmod 644 "$out"/*
ls -l "$out"

#!/bin/sh
# record.sh [DIRECTORY]: records the demo's captures from real traffic, into demo/captures unless told otherwise.
#
# Six hosts in network namespaces of their own talk to each other through a VLAN-aware Linux bridge with the ports p1, p2 and p3.
# Each port leads to a segment that its hosts share:
#
#    p1   h1 untagged    h2 in VLAN 10
#    p2   h3 untagged    h4 in VLAN 10      h5 in VLAN 20, and untagged too
#    p3   h6 in VLAN 20
#
# Near the end h2 is unplugged from its segment and plugged in on p3. What arrives on each port is captured: p1 and p2 as pcap, p3 as
# pcapng. At the end the bridge's forwarding database is written as the kernel's own tool tells it (expected.json), for the demo to
# compare with what was learned from the captures.
#
# Needs root, a kernel whose bridges filter VLANs, and the packages iproute2, iputils-ping, tcpdump and wireshark-common (editcap).
set -eu

here=$(cd "$(dirname "$0")" && pwd)
out=${1:-$here/captures}
work=
prefix=vanta$$
switch=$prefix-sw
captures=

fail() {
   echo "record.sh: $1" >&2
   exit 1
}

clean_up() {
   for pid in $captures; do kill "$pid" 2>/dev/null || true; done
   for ns in $switch $prefix-h1 $prefix-h2 $prefix-h3 $prefix-h4 $prefix-h5 $prefix-h6; do
      ip netns del "$ns" 2>/dev/null || true
   done
   [ -z "$work" ] || rm -rf "$work"
}

on_switch() { ip netns exec "$switch" "$@"; }
on_host() { ns=$prefix-$1; shift; ip netns exec "$ns" "$@"; }

# Hosts are to be the only ones that talk.
quiet_namespace() {
   ip netns add "$1"
   ip netns exec "$1" sh -c 'for s in all default; do f=/proc/sys/net/ipv6/conf/$s/disable_ipv6; [ ! -e $f ] || echo 1 > $f; done'
   ip -n "$1" link set lo up
}

make_switch() {
   quiet_namespace "$switch"
   ip -n "$switch" link add br0 type bridge vlan_filtering 1 vlan_default_pvid 1 mcast_snooping 0 2>/dev/null ||
      fail "this kernel's bridges can't filter VLANs (CONFIG_BRIDGE_VLAN_FILTERING); record on another one"
   ip -n "$switch" link set br0 up
   for n in 1 2 3; do
      ip -n "$switch" link add "seg$n" type bridge mcast_snooping 0
      ip -n "$switch" link add "p$n" type veth peer name "up$n"
      ip -n "$switch" link set "p$n" master br0
      ip -n "$switch" link set "up$n" master "seg$n"
      on_switch bridge vlan add dev "p$n" vid 10
      on_switch bridge vlan add dev "p$n" vid 20
      for device in "seg$n" "p$n" "up$n"; do ip -n "$switch" link set "$device" up; done
   done
}

# make_host NUMBER SEGMENT: a host, its locally administered address, and its cable. The address of a host in VLAN v is 10.0.v.NUMBER.
make_host() {
   quiet_namespace "$prefix-h$1"
   ip -n "$switch" link add "h$1" type veth peer name eth0 netns "$prefix-h$1"
   ip -n "$switch" link set "h$1" master "seg$2"
   ip -n "$switch" link set "h$1" up
   ip -n "$prefix-h$1" link set eth0 address "02:00:00:00:00:0$1"
   ip -n "$prefix-h$1" link set eth0 up
}

in_vlan() {
   if [ "$2" = 1 ]; then device=eth0; else
      device=eth0.$2
      ip -n "$prefix-h$1" link add link eth0 name "$device" type vlan id "$2" 2>/dev/null ||
         fail "this kernel has no VLAN devices (CONFIG_VLAN_8021Q); record on another one"
      ip -n "$prefix-h$1" link set "$device" up
   fi
   ip -n "$prefix-h$1" addr add "10.0.$2.$1/24" dev "$device"
}

# capture PORT: what arrives on the port.
capture() {
   ip netns exec "$switch" tcpdump -n -i "$1" -Q in -s 96 -U -Z root -w "$work/$1.pcap" 2>"$work/$1.log" &
   captures="$captures $!"
   tries=0
   until grep -qs '^tcpdump: listening' "$work/$1.log"; do
      tries=$((tries + 1))
      [ $tries -lt 200 ] || fail "tcpdump did not start on $1: $(cat "$work/$1.log")"
      sleep 0.1
   done
}

# talk HOST ADDRESS: asks for the address, once, and gets an answer.
talk() { on_host "$1" ping -q -c 1 -W 2 "$2" >/dev/null || fail "$1 can't reach $2"; }

for tool in ip bridge ping tcpdump editcap; do
   command -v $tool >/dev/null || fail "needs $tool; install iproute2, iputils-ping, tcpdump and wireshark-common"
done
[ "$(id -u)" = 0 ] || fail "needs root, to make network namespaces"
trap clean_up EXIT
trap 'exit 1' INT TERM HUP
work=$(mktemp -d)

make_switch
make_host 1 1; in_vlan 1 1
make_host 2 1; in_vlan 2 10
make_host 3 2; in_vlan 3 1
make_host 4 2; in_vlan 4 10
make_host 5 2; in_vlan 5 20; in_vlan 5 1
make_host 6 3; in_vlan 6 20
sleep 1

for n in 1 2 3; do capture "p$n"; done

talk h1 10.0.1.3
sleep 0.4
talk h2 10.0.10.4
sleep 0.4
talk h5 10.0.20.6
sleep 0.4
talk h5 10.0.1.1
sleep 1
# h2 moves.
ip -n "$switch" link set h2 master seg3
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

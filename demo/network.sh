# The demo's network, to be sourced by scripts that set `prefix`: hosts in network namespaces of their own talk to each other
# through the Linux bridge br0 with the ports p1, p2 and p3. Each port leads to a segment that its hosts share:
#
#    p1   h1 untagged    h2 in VLAN 10
#    p2   h3 untagged    h4 in VLAN 10      h5 in VLAN 20, and untagged too
#    p3   h6 in VLAN 20
#
# Needs root, and the package iproute2.

# Whether the bridge keeps a filtering database per VLAN; set by `make_network`. Where the kernel can't, all hosts are untagged.
vlans=yes

remove_network() {
   for ns in sw h1 h2 h3 h4 h5 h6; do ip netns del "$prefix-$ns" 2>/dev/null || true; done
}

on_switch() { ip netns exec "$prefix-sw" "$@"; }

# Hosts are to be the only ones that talk.
quiet_namespace() {
   ip netns add "$prefix-$1"
   ip netns exec "$prefix-$1" sh -c 'for s in all default; do
      f=/proc/sys/net/ipv6/conf/$s/disable_ipv6
      [ ! -e $f ] || echo 1 >$f
   done'
   ip -n "$prefix-$1" link set lo up
}

make_switch() {
   quiet_namespace sw
   ip -n "$prefix-sw" link add br0 type bridge vlan_filtering 1 vlan_default_pvid 1 mcast_snooping 0 2>/dev/null || {
      vlans=no
      ip -n "$prefix-sw" link add br0 type bridge mcast_snooping 0
   }
   ip -n "$prefix-sw" link set br0 up
   for n in 1 2 3; do
      ip -n "$prefix-sw" link add "seg$n" type bridge mcast_snooping 0
      ip -n "$prefix-sw" link add "p$n" type veth peer name "up$n"
      ip -n "$prefix-sw" link set "p$n" master br0
      ip -n "$prefix-sw" link set "up$n" master "seg$n"
      if [ $vlans = yes ]; then
         on_switch bridge vlan add dev "p$n" vid 10
         on_switch bridge vlan add dev "p$n" vid 20
      fi
      for device in "seg$n" "p$n" "up$n"; do ip -n "$prefix-sw" link set "$device" up; done
   done
}

# make_host NUMBER SEGMENT VLAN...: a host, its locally administered address, and its cable. Its address in VLAN v is
# 10.0.v.NUMBER.
make_host() {
   host=h$1 number=$1 segment=$2
   shift 2
   quiet_namespace "$host"
   ip -n "$prefix-sw" link add "$host" type veth peer name eth0 netns "$prefix-$host"
   ip -n "$prefix-sw" link set "$host" master "seg$segment"
   ip -n "$prefix-sw" link set "$host" up
   ip -n "$prefix-$host" link set eth0 address "02:00:00:00:00:0$number"
   ip -n "$prefix-$host" link set eth0 up
   for vlan in "$@"; do
      device=eth0
      if [ "$vlan" != 1 ] && [ $vlans = yes ]; then
         device=eth0.$vlan
         ip -n "$prefix-$host" link add link eth0 name "$device" type vlan id "$vlan"
         ip -n "$prefix-$host" link set "$device" up
      fi
      ip -n "$prefix-$host" addr add "10.0.$vlan.$number/24" dev "$device"
   done
}

make_network() {
   make_switch
   make_host 1 1 1
   make_host 2 1 10
   make_host 3 2 1
   make_host 4 2 10
   make_host 5 2 20 1
   make_host 6 3 20
   # A port forwards a moment after its carrier has come.
   tries=0
   while on_switch bridge link show | grep -q 'state disabled'; do
      tries=$((tries + 1))
      [ $tries -lt 100 ] || { echo "the ports of br0 do not come up" >&2; return 1; }
      sleep 0.1
   done
}

# move HOST SEGMENT: unplugs the host and plugs it in elsewhere.
move() { ip -n "$prefix-sw" link set "$1" master "seg$2"; }

# talk HOST ADDRESS: sends a datagram to the address, and returns when its owner has answered: the neighbour is known and the port
# refuses.
talk() {
   ip netns exec "$prefix-$1" bash -c 'echo hello >"/dev/udp/$1/9"' talk "$2"
   tries=0
   until ip -n "$prefix-$1" neigh show "$2" | grep -q lladdr; do
      tries=$((tries + 1))
      [ $tries -lt 40 ] || { echo "$1 can't reach $2" >&2; return 1; }
      sleep 0.05
   done
}

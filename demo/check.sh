# How the demos run and check themselves, to be sourced by scripts that set `vanta`, the command, and `work`, a directory of
# their own.

# What the kernel's own tool said (bridge -j fdb show), as lines "VLAN ADDRESS PORT"; the bridge's port pN is EthernetN.
kernel_view() {
   tr '{' '\n' <"$1" | sed -n \
      -e 's/^"mac":"\([^"]*\)","ifname":"p\([0-9]*\)","vlan":\([0-9]*\).*/\3 \1 Ethernet\2/p' -e t \
      -e 's/^"mac":"\([^"]*\)","ifname":"p\([0-9]*\)".*/1 \1 Ethernet\2/p' | sort
}

# What a watcher (vanta fdb watch --json) has seen come and go, played to its end, as the same lines.
watcher_view() {
   sed -n -e 's/^{"event":"host","vlan":\([0-9]*\),"address":"\([^"]*\)","port":"\([^"]*\)".*/host \1 \2 \3/p' \
      -e 's/^{"event":"gone","vlan":\([0-9]*\),"address":"\([^"]*\)".*/gone \1 \2/p' "$1" |
      awk '$1 == "host" { port[ $2 " " $3 ] = $4 } $1 == "gone" { delete port[ $2 " " $3 ] } END { for( h in port ) print h, port[ h ] }' | sort
}

# Two watchers in processes of their own: one for people, whose lines appear as they come, one for the check.
start_watchers() {
   "$vanta" fdb watch --json >"$work/watched" 2>/dev/null &
   started="$started $!"
   "$vanta" fdb watch 2>/dev/null | sed -u 's/^/   watcher | /' &
   started="$started $!"
}

# until_watched TEXT: waits until the watcher has seen a line with the text, for 30 seconds at most.
until_watched() {
   tries=0
   until grep -q "$1" "$work/watched"; do
      tries=$((tries + 1))
      [ $tries -lt 300 ] || fail "the watcher has not seen $1 in 30 seconds"
      sleep 0.1
   done
}

stop_all() {
   for pid in $started; do kill "$pid" 2>/dev/null || true; done
   for pid in $started; do wait "$pid" 2>/dev/null || true; done
   started=
}

say() { printf '\n== %s\n' "$1"; }

fail() {
   echo "${0##*/}: $1" >&2
   exit 1
}

# check KERNEL_JSON: fails unless the kernel, the watcher, and a process that looks at the table now agree, and the watcher has seen
# the move as it happened.
check() {
   kernel_view "$1" >"$work/kernel"
   watcher_view "$work/watched" >"$work/watcher"
   "$vanta" fdb show --json 2>/dev/null | tr '{' '\n' |
      sed -n 's/^"vlan":\([0-9]*\),"address":"\([^"]*\)","port":"\([^"]*\)".*/\1 \2 \3/p' | sort >"$work/shown"
   [ "$(grep -c '"event":"sync"' "$work/watched")" = 1 ] || fail "the watcher has not seen exactly one sync marker"
   [ -s "$work/kernel" ] || fail "the kernel's view is empty"
   diff "$work/kernel" "$work/shown" >&2 || fail "the table is not what the kernel has (lines with <)"
   diff "$work/shown" "$work/watcher" >&2 || fail "what the watcher saw is not what was learned (lines with <)"
   sed '1,/"event":"sync"/d' "$work/watched" | grep '"address":"02:00:00:00:00:02","port":"Ethernet3","moves":1,' >/dev/null ||
      fail "the watcher has not seen 02:00:00:00:00:02 move to Ethernet3"
   printf '\nChecked: %s hosts, the same in the kernel, in the table and at the watcher, which saw the move live.\n' "$(wc -l <"$work/kernel")"
}

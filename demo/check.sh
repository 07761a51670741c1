# How the demos run and check themselves, to be sourced by scripts that set `vanta`, the command, and `work`, a directory of
# their own.

# What the kernel's own tool said (bridge -j fdb show), as lines "VLAN ADDRESS PORT"; the bridge's port pN is EthernetN.
kernel_view() {
   tr '{' '\n' <"$1" | sed -n \
      -e 's/^"mac":"\([^"]*\)","ifname":"p\([0-9]*\)","vlan":\([0-9]*\).*/\3 \1 Ethernet\2/p' -e t \
      -e 's/^"mac":"\([^"]*\)","ifname":"p\([0-9]*\)".*/1 \1 Ethernet\2/p' | sort
}

# What a watcher (vanta fdb watch --json) has seen come and go, as lines "host VLAN ADDRESS PORT MOVES" and "gone VLAN ADDRESS".
watcher_events() {
   sed -n -e 's/^{"event":"host","vlan":\([0-9]*\),"address":"\([^"]*\)","port":"\([^"]*\)","moves":\([0-9]*\),.*/host \1 \2 \3 \4/p' \
      -e 's/^{"event":"gone","vlan":\([0-9]*\),"address":"\([^"]*\)".*/gone \1 \2/p' "$1"
}

# The same played to its end, as lines "VLAN ADDRESS PORT MOVES".
watcher_view() {
   watcher_events "$1" | awk '$1 == "host" { at[ $2 " " $3 ] = $4 " " $5 }
      $1 == "gone" { delete at[ $2 " " $3 ] }
      END { for( h in at ) print h, at[ h ] }' | sort
}

# What the table must hold, as the same lines: the kernel's, each with how often the watcher saw the host change its port, whatever
# count of moves it was told.
expected_view() {
   kernel_view "$1" >"$work/kernel"
   watcher_events "$work/watched" | awk '{ h = $2 " " $3 }
      NR > FNR { print $0, moves[ $1 " " $2 ] + 0; next }
      $1 == "gone" { delete at[ h ]; delete moves[ h ]; next }
      h in at && at[ h ] != $4 { ++moves[ h ] }
      { at[ h ] = $4 }' - "$work/kernel"
}

# What a process sees that looks at the table now (vanta fdb show --json), as the same lines.
shown_view() {
   tr '{' '\n' <"$1" |
      sed -n 's/^"vlan":\([0-9]*\),"address":"\([^"]*\)","port":"\([^"]*\)","moves":\([0-9]*\),.*/\1 \2 \3 \4/p' | sort
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

# check KERNEL_JSON STATE: fails unless the kernel, the watcher, and a process that looks at the table now agree on every host,
# port and move count, the table is in that state (live while its writer runs, stale when that has ended), and the watcher has
# seen a host move as it happened.
check() {
   expected_view "$1" >"$work/expected"
   watcher_view "$work/watched" >"$work/watcher"
   "$vanta" fdb show --json 2>/dev/null >"$work/json" || fail "vanta fdb show can't read the table"
   shown_view "$work/json" >"$work/shown"
   grep -q "\"state\":\"$2\"" "$work/json" || fail "the table is not $2"
   [ "$(grep -c '"event":"sync"' "$work/watched")" = 1 ] || fail "the watcher has not seen exactly one sync marker"
   [ -s "$work/expected" ] || fail "the kernel's view is empty"
   diff "$work/expected" "$work/shown" >&2 || fail "the table, $2, is not what the kernel has (lines with <)"
   diff "$work/shown" "$work/watcher" >&2 || fail "what the watcher saw is not what was learned (lines with <)"
   grep -q ' [1-9][0-9]*$' "$work/expected" || fail "the watcher has seen no host move"
   printf 'Checked (%s): %s hosts, the same ports and moves in the kernel, in the table and at the watcher, which saw the move live.\n' \
      "$2" "$(wc -l <"$work/expected")"
}

#!/bin/sh
# demo.sh BUILD [OTHER-BUILD]: vanta-fdbd learns hosts from captures of real traffic (record.sh made them), played as they were
# recorded, while other processes show and follow the same table; these are OTHER-BUILD's when one is named. Needs no privileges.
set -eu

here=$(cd "$(dirname "$0")" && pwd)
bin=${1:?usage: demo.sh BUILD-DIRECTORY [OTHER-BUILD-DIRECTORY]}/bin
vanta=${2:-$1}/bin/vanta
work=$(mktemp -d)
started=
. "$here/check.sh"
trap 'stop_all; rm -rf "$work"' EXIT
trap 'exit 1' INT TERM HUP
export PLEXO_DIR="$work/tables"
export RILO_DIR="$work/rings"
mkdir "$PLEXO_DIR"

say "a watcher waits; then vanta-fdbd starts and learns from recorded traffic on three ports"
start_watchers
"$bin/vanta-fdbd" --statistics --capture "$here/captures/port1.pcap" --capture "$here/captures/port2.pcap" \
   --capture "$here/captures/port3.pcapng" &
agent=$!
started="$agent $started"
until_watched '"vlan":1,"address":"02:00:00:00:00:05"'
say "the table, from another process (vanta fdb show)"
"$vanta" fdb show
say "the host 02:00:00:00:00:02 is about to be plugged in on Ethernet3"
until_watched '"address":"02:00:00:00:00:02","port":"Ethernet3","moves":1,'
sleep 0.8 # the recording ends
say "the table now"
"$vanta" fdb show
echo
check "$here/captures/expected.json" live
kill -TERM $agent
wait $agent || fail "vanta-fdbd ended with an error"
check "$here/captures/expected.json" stale

#!/usr/bin/env bash
# A Windows host killed (kill -9 of its Wine process) while it keeps writes
# for a database that is away: another live host is refused the spool with
# the coded text; a host started after the kill takes the spool back at once
# and is killed in turn at a random moment of its start or forwarding; the
# next forwards every acknowledged write, each once and in call order.
#
#   spool_kill.sh BIN   (spool_host.exe and scadastore.dll), with the data
#                       sources of build/test-env.sh
set -uo pipefail
bin=$1
IFS=';' read -r dsn user password <<<"${SCADASTORE_TEST_POSTGRES:?source build/test-env.sh}"
work=$(mktemp -d)
writer=
trap '[ -n "$writer" ] && kill -9 "$writer" 2>/dev/null; rm -rf "$work"' EXIT
# Wine's drive Z: is the root of this file system.
spool="spool=Z:$work/spool" notes="Z:$work/notes" prefix=spool_kill_$$
here="$dsn;$user;$password;5" away="scadastore_blackhole;$user;$password;5"
host() { wine "$bin/spool_host.exe" "$@" </dev/null; }
fail() { echo "FAILED: $*"; cat "$work"/*.err; exit 1; }

host write "$here;$spool" "$prefix" 1 0 1 "$notes" >/dev/null 2>"$work/tables.err" \
  || fail "the host could not make its tables"
start() {  # a host in the background, as $writer
  wine "$bin/spool_host.exe" write "$@" </dev/null >/dev/null 2>>"$work/writer.err" &
  writer=$!
}
start "$away;$spool" "$prefix" 1000 60 1000 "$notes"
for _ in $(seq 300); do
  [ "$(wc -l <"$work/notes")" -ge 1000 ] && break
  sleep 0.1
done
[ "$(wc -l <"$work/notes")" -ge 1000 ] || fail "the host kept too few writes"

# One write, of an alarm (90000 % 3 == 0).
host write "$away;$spool" "$prefix" 90000 0 1 "$notes" >/dev/null 2>"$work/second.err"
grep -q "\[alm102\] failed to open DSN: scadastore_blackhole; spool: .* is in use by another process" \
  "$work/second.err" || fail "a second live host was not refused the spool"

kill -9 "$writer" || fail "the host ended before it was killed"
wait "$writer" 2>/dev/null
start "$here;$spool" "$prefix" 100000 0 1 "$notes"
sleep 0.$((RANDOM % 9 + 2))
kill -9 "$writer"
wait "$writer" 2>/dev/null
writer=
host write "$here;$spool" "$prefix" 200000 0 1 "$notes" >/dev/null 2>"$work/taker.err" \
  || fail "the host started after the kill"
host collect "$here" "$prefix" >"$work/stored" 2>"$work/collect.err" \
  || fail "the stored rows could not be read"

# Every acknowledged alarm once, in call order; the killed host may have
# kept one write it did not live to note. Windows ends its text lines in CR LF.
awk '{ sub(/\r$/, "") }
  NR == FNR { if ($1 == "a") { acked++; missing[$2] = 1 }; next }
  { stored++; if (seen[$2]++) duplicated++; if ($2 + 0 < last) disordered++
    last = $2 + 0; delete missing[$2] }
  END { for (n in missing) lost++
    printf "alarms acknowledged %d stored %d lost %d duplicated %d out-of-order %d\n",
      acked, stored, lost, duplicated, disordered
    exit (lost + duplicated + disordered > 0 || stored > acked + 1) }' \
  "$work/notes" "$work/stored" || fail "forwarding after the kill"

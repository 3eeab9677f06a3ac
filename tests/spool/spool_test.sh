#!/usr/bin/env bash
# Store and forward on a server of this test's own, stopped and started or
# frozen under a writing host, and a host killed (kill -9) while keeping and
# forwarding.
#
#   spool_test.sh postgres|mariadb SPOOL_HOST SCADASTORE_TOOL
#
# Prints the figures of each scenario, read from the database with its own
# client; fails when an acknowledged write is lost or stored twice, or a
# table's rows are out of call order.
set -uo pipefail
database=$1 host=$2 tool=$3
root=$(cd "$(dirname "$0")/../.." && pwd)
# shellcheck source=../../scripts/lib/servers.sh
source "$root/scripts/lib/servers.sh"
work=$(mktemp -d /tmp/scadastore-spool.XXXXXX)
# SPOOL_TEST_KEEP=1 keeps the spool, notes and outputs for a look.
trap 'stop_postgres; stop_maria; [ -n "${SPOOL_TEST_KEEP:-}" ] || rm -rf "$work"' EXIT
failures=0

case $database in
  postgres)
    start_postgres || exit 1
    dsn=scadastore_pg kind=5
    halt() { halt_postgres; }
    server_pid() { live_pid "$PG_DIR/data/postmaster.pid"; }
    sql() { PGPASSWORD=$TEST_PASSWORD "$(postgres_bin)/psql" -qAt -h 127.0.0.1 -p "$PG_PORT" \
      -U "$TEST_USER" -d "$TEST_DB" -c "$1"; }
    resume() { launch_postgres; }
    sleep_sql="select pg_sleep(9)" ;;
  mariadb)
    start_maria || exit 1
    dsn=scadastore_maria kind=2
    halt() { halt_maria; }
    server_pid() { live_pid "$MARIA_DIR/mysqld.pid"; }
    sql() { mariadb --no-defaults -h127.0.0.1 -P"$MARIA_PORT" -u"$TEST_USER" -p"$TEST_PASSWORD" \
      -D "$TEST_DB" -Ne "$1"; }
    resume() {
      launch_maria
      for _ in $(seq 1 300); do maria_ping && return 0; sleep 0.1; done
      return 1
    }
    sleep_sql="do sleep(9)" ;;
  *) echo "usage: $0 postgres|mariadb SPOOL_HOST SCADASTORE_TOOL" >&2; exit 2 ;;
esac
save_state "$work/state" && write_odbc_files "$work" "$work/state" >/dev/null || exit 1
export ODBCSYSINI=$work ODBCINI=$work/odbc.ini
plain="$dsn;$TEST_USER;$TEST_PASSWORD;$kind;pool;login=2;timeout=5"
spooled="$plain;spool=$work/spool"

signal_server() {  # signal_server STOP|CONT: the server and its backends
  local pid
  pid=$(server_pid) && kill -"$1" "$pid" $(pgrep -P "$pid")
}

check() {  # check NAME PREFIX NOTES: what the database holds against the notes
  { sql "select 'a', round(value) from ${2}_a order by id"
    sql "select 'l', source from ${2}_l order by id"
    sql "select 's', round(n) from ${2}_s order by id"; } | tr '|\t' '  ' >"$work/$2.stored"
  local figures status
  figures=$(awk 'NR == FNR { if (!($0 in acked)) a++; acked[$0]; next }
    { s++; if (seen[$0]++) d++; if ($2 + 0 < last[$1]) o++; last[$1] = $2 + 0; if (!($0 in acked)) u++ }
    END { for (k in acked) if (!(k in seen)) { l++; if (l <= 10) print "lost " k > "/dev/stderr" }
      printf "acknowledged %d stored %d lost %d duplicated %d out-of-order %d stored-unacknowledged %d\n",
        a, s, l, d, o, u
      exit (l + d + o > 0) }' "$3" "$work/$2.stored")
  status=$?
  echo "$1: $figures"
  [ $status -eq 0 ] || { echo "FAILED: $1"; failures=$((failures + 1)); }
}

drain() {  # drain CONFIG: the tool forwards what is left; the spool must end empty
  "$tool" --config "$1" spool forward >"$work/forward.out" 2>&1 \
    || { echo "FAILED: spool forward"; cat "$work/forward.out"; failures=$((failures + 1)); }
  "$tool" --config "$1" spool status >"$work/status.out" 2>&1 \
    || { echo "FAILED: spool status after forward"; cat "$work/status.out"; failures=$((failures + 1)); }
}

# --- the server stops for seconds under a steady writer ------------------------
"$host" write "$spooled" o 1 14 150 "$work/o.notes" >"$work/o.out" 2>"$work/o.err" &
writer=$!
sleep 3
halt
sleep 5
resume || { echo "FAILED: the server did not start again"; exit 1; }
wait $writer
echo "outage: $(cat "$work/o.out") failed calls $(grep -c failed "$work/o.err")"
drain "$spooled"
check outage o "$work/o.notes"

# --- the server freezes under an alarm insert, which the server-wait bound
# (timeout=5) cuts; the insert commits after all once the server continues -----
"$host" write "$spooled" z 1 12 4 "$work/z.notes" >/dev/null 2>"$work/z.err" &
writer=$!
sleep 2
# The next alarm id, held uncommitted: the host's insert of it waits.
sql "begin; insert into z_a (id) select max(id) + 1 from z_a; $sleep_sql; rollback" >/dev/null &
holder=$!
sleep 2
signal_server STOP
sleep 6
signal_server CONT
wait $holder $writer
drain "$spooled"
check frozen z "$work/z.notes"

# --- kill -9 while keeping and while forwarding ------------------------------------
first=100000
for point in $(seq 1 12); do
  "$host" write "$spooled" k $first 30 200 "$work/k.notes" >/dev/null 2>>"$work/k.err" &
  writer=$!
  if [ $((point % 2)) -eq 1 ]; then   # keeping: the server is away
    sleep 0.$((RANDOM % 5 + 3)); halt; sleep 0.$((RANDOM % 9 + 1))
    kill -9 $writer; wait $writer 2>/dev/null
    resume || exit 1
  else                               # forwarding what the last one kept
    sleep 0.$((RANDOM % 9 + 1))
    kill -9 $writer; wait $writer 2>/dev/null
  fi
  first=$((first + 100000))
done
echo "kill -9: 12 points, $(wc -l <"$work/k.notes") acknowledged"
halt   # and a write kept for a table that never comes, set aside when forwarded
"$host" write "$spooled" g 3 0 1 /dev/null >/dev/null 2>&1
resume || exit 1
drain "$spooled"
check "kill -9" k "$work/k.notes"
"$tool" --config "$spooled" --format json spool status >"$work/aside.json"
jq -e '.waiting == [] and (.set_aside[0].reason | startswith("refused: ") and endswith("table g_a)"))' \
  "$work/aside.json" >/dev/null \
  || { echo "FAILED: spool status of a set-aside write"; cat "$work/aside.json"; failures=$((failures + 1)); }

# --- a spool on a small file system fills while the server is away -------------
mkdir -p "$work/full"
full="$plain;spool=$work/full/spool"
if mount -t tmpfs -o size=256k tmpfs "$work/full" 2>/dev/null; then
  trap 'umount "$work/full"; stop_postgres; stop_maria; [ -n "${SPOOL_TEST_KEEP:-}" ] || rm -rf "$work"' EXIT
  room="256 KB tmpfs"
else
  full="$full;spoolmax=1" room="spoolmax=1"
fi
"$host" write "$full" f 1 0 1 "$work/f.notes" >/dev/null   # the tables, and write 1
halt
"$host" write "$full" f 2 4 400 "$work/f.notes" >"$work/f.out" 2>"$work/f.err"
"$tool" --config "$full" --format json spool status >"$work/f.status" 2>&1
status=$?
"$tool" --config "$full" spool forward >"$work/f.forward" 2>&1
forwarded=$?
[ $status -eq 1 ] && grep -q '"table":"f_s"' "$work/f.status" && [ $? -eq 0 ] \
  || { echo "FAILED: spool status while writes wait"; cat "$work/f.status"; failures=$((failures + 1)); }
[ $forwarded -ne 0 ] \
  || { echo "FAILED: spool forward without the database"; cat "$work/f.forward"; failures=$((failures + 1)); }
resume || exit 1
refused=$(grep -c "failed to open DSN: $dsn; spool full: " "$work/f.err")
echo "full ($room): $(cat "$work/f.out"), $refused refused with \"spool full\""
[ "$refused" -gt 0 ] || { echo "FAILED: no call was refused for a full spool"; sed -n 1,3p "$work/f.err"; failures=$((failures + 1)); }
if [ "$room" = "256 KB tmpfs" ]; then
  # Forwarded on a full disk: no room for a fresh journal, nor (truncated
  # back) for the marks; the status asks the database what it took.
  dd if=/dev/zero of="$work/full/filler" bs=4k 2>/dev/null
  journal=$work/full/spool/journal size=$(stat -c %s "$journal")
  "$tool" --config "$full" spool forward >/dev/null 2>&1
  truncate -s "$size" "$journal"
  "$tool" --config "$full" spool status >"$work/f.marks" 2>&1 \
    || { echo "FAILED: spool status of writes forwarded on a full disk"; cat "$work/f.marks"; failures=$((failures + 1)); }
  rm "$work/full/filler"
fi
drain "$full"
check full f "$work/f.notes"

[ $failures -eq 0 ] && echo "spool $database: passed" || echo "spool $database: $failures failed"
exit $((failures > 0))

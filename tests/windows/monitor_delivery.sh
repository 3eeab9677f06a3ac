#!/usr/bin/env bash
# A failed call of the example host, in one Wine process, reaches the
# monitor in another: the monitor prints the driver's message.
set -uo pipefail
bin=$1  # scadastore-monitor.exe, scadastore-example.exe and scadastore.dll
out=$(mktemp -d)
monitor=
finish() {
  [ -n "$monitor" ] && kill "$monitor" 2>/dev/null
  rm -rf "$out"
}
trap finish EXIT

wine "$bin/scadastore-monitor.exe" --process scadastore-example.exe --count 1 \
  >"$out/texts" 2>"$out/monitor.log" </dev/null &
monitor=$!
for _ in $(seq 300); do
  grep -q listening "$out/monitor.log" && break
  sleep 0.1
done
if ! grep -q listening "$out/monitor.log"; then
  cat "$out/monitor.log"
  echo "the monitor did not start"
  exit 1
fi

if wine "$bin/scadastore-example.exe" "no_such_data_source;user;password;1" \
     >"$out/host.log" 2>&1 </dev/null; then
  cat "$out/host.log"
  echo "the host connected to a data source that does not exist"
  exit 1
fi
# The monitor ends after its one text.
for _ in $(seq 100); do
  kill -0 "$monitor" 2>/dev/null || break
  sleep 0.1
done
echo "the monitor received:"
cat "$out/texts" "$out/monitor.log"
grep -q "Data source name not found" "$out/texts"

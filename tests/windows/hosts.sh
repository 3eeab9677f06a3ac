#!/usr/bin/env bash
# The two kinds of Windows host on a fresh SQLite data source: one linked with
# the import library (the install check's consumer) and the example host,
# which loads scadastore.dll at run time. Each stores an alarm and reads it back.
set -euo pipefail
bin=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
printf '[host]\nDriver=SQLite3\nDatabase=%s\n' "$work/host.db" >"$work/odbc.ini"
export ODBCINI=$work/odbc.ini

wine "$bin/dll_consumer.exe" host
output=$(wine "$bin/scadastore-example.exe" "host;;;3" 2>&1) || { echo "$output"; exit 1; }
echo "$output"
grep -q "^alarm 1: station1 pump1.pressure 7.50 pressure high" <<<"$output"

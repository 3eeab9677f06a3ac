#!/usr/bin/env bash
# A year of 10-second samples (3.15 million rows, one float column, with the
# time index) on SQLite and on the PostgreSQL of build/test-env.sh: the time
# of a 1,000-point trend of the year and of a month's report, each beside
# the plain select of the same range through the same tool.
#   bench/trend_bench.sh [DAYS]     # DAYS of samples, default 365
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
tool=$root/build/scadastore
days=${1:-365}
rows=$((days * 8640))
start=1704067200  # 2024-01-01 00:00 UTC
end=$((start + days * 86400))
month_end=$((start + 31 * 86400))
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
export TZ=UTC

seconds() {  # runs the tool, prints its wall time in seconds
  local began=$(date +%s%N)
  "$tool" "$@" >/dev/null
  local ms=$((($(date +%s%N) - began) / 1000000))
  printf '%d.%03d' $((ms / 1000)) $((ms % 1000))
}

measure() {  # database options...
  local fill=$1; shift
  "$tool" "$@" drop trend_bench >/dev/null 2>&1 || true
  "$tool" "$@" ensure data trend_bench --columns v >/dev/null
  printf '  fill %d rows:  %6.2f s\n' "$rows" "$(seconds "$@" sql --write "$fill")"
  printf '  plain select of the range:   %6.2f s\n' \
    "$(seconds "$@" --format csv records trend_bench --columns time,v --from $start --to $end)"
  printf '  --points 1000 of the range:  %6.2f s\n' \
    "$(seconds "$@" --format csv records trend_bench --columns time,v --from $start --to $end --points 1000)"
  printf '  plain select of a month:     %6.2f s\n' \
    "$(seconds "$@" --format csv records trend_bench --columns time,v --from $start --to $month_end)"
  printf '  report of a month:           %6.2f s\n' \
    "$(seconds "$@" report --table trend_bench --from $start --to $month_end -o "$dir/month.html")"
  printf '  report of the range:         %6.2f s\n' \
    "$(seconds "$@" report --table trend_bench --from $start --to $end -o "$dir/range.html")"
  "$tool" "$@" drop trend_bench >/dev/null
}

value="abs(i % 8640 - 4320) * 0.01 + (i % 7) * 0.1"
echo "SQLite ($days days, $rows rows):"
measure "insert into trend_bench (id, time, ms, modify, v) with recursive n(i) as (select 0 union all select i + 1 from n where i < $((rows - 1))) select i + 1, $start + 10 * i, 0, 0, $value from n" \
  --sqlite "$dir/trend.db"
if [ -f "$root/build/test-env.sh" ]; then
  source "$root/build/test-env.sh"
  echo "PostgreSQL ($days days, $rows rows):"
  measure "insert into trend_bench (id, time, ms, modify, v) select i + 1, $start + 10 * i, 0, 0, $value from generate_series(0, $((rows - 1))) i" \
    --config "$SCADASTORE_TEST_POSTGRES;5"
fi

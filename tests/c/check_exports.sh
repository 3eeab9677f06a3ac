#!/usr/bin/env bash
# Fails when the library exports a symbol the public header does not declare,
# or the header declares an export the library lacks.
set -euo pipefail
library=$1 header=$2
exported=$(nm -D --defined-only "$library" | awk '$2 ~ /^[TWDBR]$/ {print $3}' | sort -u)
declared=$(grep -oE '^SCADASTORE_API [^(]*\b(db|alm|log|sg)[A-Za-z_]+\(' "$header" \
  | grep -oE '(db|alm|log|sg)[A-Za-z_]+\($' | tr -d '(' | sort -u)
extra=$(comm -23 <(echo "$exported") <(echo "$declared"))
missing=$(comm -13 <(echo "$exported") <(echo "$declared"))
status=0
if [ -n "$extra" ]; then echo "exported but not declared:"; echo "$extra"; status=1; fi
if [ -n "$missing" ]; then echo "declared but not exported:"; echo "$missing"; status=1; fi
echo "$(echo "$exported" | wc -l) exports checked"
exit $status

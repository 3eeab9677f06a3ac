#!/usr/bin/env bash
# Fails when the library exports a symbol the public header does not declare,
# or the header declares an export the library lacks. A Windows DLL is read
# with objdump -p (the third argument names it), where an export without a
# name counts too.
set -euo pipefail
library=$1 header=$2 objdump=${3:-objdump}
if [[ $library == *.dll ]]; then
  table=$("$objdump" -p "$library")
  exported=$(sed -n '/^\[Ordinal\/Name Pointer\] Table/,/^$/p' <<<"$table" \
    | awk '/^\t\[ *[0-9]+\] / {print $NF}' | sort -u)
  addresses=$(grep -c 'Export RVA$' <<<"$table" || true)
  if [ "$addresses" -ne "$(grep -c . <<<"$exported")" ]; then
    echo "$addresses exported addresses for $(grep -c . <<<"$exported") names"
    exit 1
  fi
else
  exported=$(nm -D --defined-only "$library" | awk '$2 ~ /^[TWDBR]$/ {print $3}' | sort -u)
fi
declared=$(grep -oE '^SCADASTORE_API [^(]*\b(db|alm|log|sg)[A-Za-z_]+\(' "$header" \
  | grep -oE '(db|alm|log|sg)[A-Za-z_]+\($' | tr -d '(' | sort -u)
extra=$(comm -23 <(echo "$exported") <(echo "$declared"))
missing=$(comm -13 <(echo "$exported") <(echo "$declared"))
status=0
if [ -n "$extra" ]; then echo "exported but not declared:"; echo "$extra"; status=1; fi
if [ -n "$missing" ]; then echo "declared but not exported:"; echo "$missing"; status=1; fi
echo "$(echo "$exported" | wc -l) exports checked"
exit $status

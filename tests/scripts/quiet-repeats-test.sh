#!/usr/bin/env bash
# scripts/quiet-repeats.awk: a flood of one line shrinks to that line and a
# count; a sanitizer report after it passes whole.
set -euo pipefail
filter=${1:?usage: quiet-repeats-test.sh FILTER.awk}
input=$(
  echo "INFO: Running with entropic power schedule"
  for i in $(seq 1 3000); do
    echo "dp == NULL && 0 == dirLevel"
    echo "#$i	NEW    cov: 10 ft: 20"
  done
  echo "==42==ERROR: AddressSanitizer: heap-use-after-free"
  echo "    #0 0x1 in f"
  echo "    #0 0x1 in f"
  echo "SUMMARY: AddressSanitizer: heap-use-after-free"
)
output=$(awk -f "$filter" <<<"$input")
expect() { grep -qxF -- "$1" <<<"$output" || { echo "missing: $1"; echo "$output" | head -50; exit 1; }; }
[ "$(grep -cxF 'dp == NULL && 0 == dirLevel' <<<"$output")" -eq 1 ] || { echo "the repeated line is shown more than once"; exit 1; }
expect "(shown once above, came 3000 times: dp == NULL && 0 == dirLevel)"
expect "#3000	NEW    cov: 10 ft: 20"
[ "$(grep -cxF '    #0 0x1 in f' <<<"$output")" -eq 2 ] || { echo "the report was shortened"; exit 1; }
expect "SUMMARY: AddressSanitizer: heap-use-after-free"
[ "$(wc -l <<<"$output")" -eq 3007 ] || { echo "unexpected length $(wc -l <<<"$output")"; exit 1; }
echo "quiet-repeats: ok"

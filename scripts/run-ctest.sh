#!/usr/bin/env bash
# Runs ctest in a build directory and fails when a test failed, or when a test
# of the service's supervision by systemd (READY=1, the watchdog) was skipped:
# such a skip hides a service that systemd would kill on the device.
#
#   scripts/run-ctest.sh BUILD_DIR [CTEST_ARGUMENT...]
set -uo pipefail
dir=$1
shift
log=$(mktemp)
trap 'rm -f "$log"' EXIT
(cd "$dir" && ctest "$@") 2>&1 | tee "$log"
status=${PIPESTATUS[0]}
skipped=$(grep -E 'Test +#[0-9]+: [^ ]*(SystemdNotify|Watchdog)[^ ]* .*\*\*\*Skipped' "$log")
if [ -n "$skipped" ]; then
  echo "run-ctest: systemd supervision tests were skipped, which counts as failing:"
  echo "$skipped"
  # Recorded with the failed tests, so the stage's summary names them.
  sed -E 's/.*Test +#([0-9]+): ([^ ]+) .*/\1:\2/' <<<"$skipped" >> "$dir/Testing/Temporary/LastTestsFailed.log"
  status=1
fi
exit "$status"

#!/usr/bin/env bash
# Sets up, builds and runs every test: a normal build, the Debian package built
# from it (installed, asked "ping", removed), then the same suites under
# AddressSanitizer+UndefinedBehaviorSanitizer and under ThreadSanitizer, then a
# bounded libFuzzer run of the control interface, then the 32-bit ARM build
# with its suites and a daemon smoke test under qemu-arm (scripts/cross-armhf.sh).
# USBMEDIA_TEST_BUILDS limits the builds (e.g. "normal" or "normal armhf").
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

builds=${USBMEDIA_TEST_BUILDS:-normal package asan tsan fuzz armhf}
jobs=$(nproc)
status=0

run_suite() {
  local name=$1 dir=$2; shift 2
  echo "=== $name: configure and build"
  cmake -S . -B "$dir" -DUSBMEDIA_BUILD_BENCH=OFF "$@" >/dev/null
  cmake --build "$dir" -j"$jobs"
  echo "=== $name: tests"
  # Playback tests mostly wait on real-time audio, so more tests than cores
  # run at once.
  if ! (cd "$dir" && ctest -j$(( jobs * 2 )) --output-on-failure --timeout 600 $([[ $name == normal ]] || echo -LE load)); then
    status=1
  fi
}

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:${ASAN_OPTIONS:-}"
export LSAN_OPTIONS="suppressions=$PWD/tests/lsan-suppressions.txt:${LSAN_OPTIONS:-}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:${UBSAN_OPTIONS:-}"
export TSAN_OPTIONS="suppressions=$PWD/tests/tsan-suppressions.txt:halt_on_error=1:second_deadlock_stack=1:${TSAN_OPTIONS:-}"

for build in $builds; do
  case "$build" in
    normal) run_suite normal build -DCMAKE_BUILD_TYPE=RelWithDebInfo ;;
    # The Debian package from the normal build: contents, install, "ping".
    package) bash scripts/package-check.sh build || status=1 ;;
    asan) run_suite "asan+ubsan" build-asan -DCMAKE_BUILD_TYPE=Debug -DUSBMEDIA_SANITIZE=address ;;
    tsan) run_suite tsan build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DUSBMEDIA_SANITIZE=thread ;;
    # The control interface under libFuzzer for a bounded time (clang).
    fuzz) bash scripts/fuzz.sh || status=1 ;;
    # The device's build (armhf) under qemu-arm: unit, integration, load
    # (one at a time) and smoke tests.
    armhf)
      echo "=== armhf: cross build and tests under emulation"
      armhf_start=$SECONDS
      USBMEDIA_JOBS=$jobs bash scripts/cross-armhf.sh || status=1
      echo "=== armhf: stage took $(( SECONDS - armhf_start )) s"
      ;;
    *) echo "unknown build: $build" >&2; exit 2 ;;
  esac
done
exit $status

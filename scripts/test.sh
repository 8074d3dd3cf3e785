#!/usr/bin/env bash
# Sets up, builds and runs every test: first every target compiled by clang
# with the lock annotations checked as errors (nothing run), then a normal
# build, the Debian package built from it (installed, asked "ping", removed),
# then the same suites under
# AddressSanitizer+UndefinedBehaviorSanitizer and under ThreadSanitizer, then a
# bounded libFuzzer run of the control interface, then the 32-bit ARM build
# with its suites and a daemon smoke test under qemu-arm (scripts/cross-armhf.sh),
# then its package on an emulated board (scripts/board-armhf.sh).
# USBMEDIA_TEST_BUILDS limits the builds (e.g. "normal" or "normal armhf").
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

builds=${USBMEDIA_TEST_BUILDS:-clang normal package asan tsan fuzz armhf board}
# Ninja schedules the six builds' compiles better than make on two cores
# (about 15 s less per build). A build tree made earlier keeps its generator.
if [[ -z ${CMAKE_GENERATOR:-} ]] && command -v ninja >/dev/null; then
  export CMAKE_GENERATOR=Ninja
fi
jobs=$(nproc)
status=0
failed=()  # one line per failed stage, printed again at the very end

# Marks a stage failed; the names of the tests that failed in a ctest build
# directory (if given) go with it so the last lines of the log say what broke.
stage_failed() {
  local stage=$1 dir=${2:-}
  status=1
  local tests=""
  if [[ -n $dir && -f $dir/Testing/Temporary/LastTestsFailed.log ]]; then
    tests=$(cut -d: -f2- "$dir/Testing/Temporary/LastTestsFailed.log" | paste -sd' ' -)
  fi
  failed+=("$stage${tests:+: $tests}")
}

run_suite() {
  local name=$1 dir=$2; shift 2
  echo "=== $name: configure and build"
  cmake -S . -B "$dir" -DUSBMEDIA_BUILD_BENCH=OFF "$@" >/dev/null
  cmake --build "$dir" -j"$jobs"
  echo "=== $name: tests"
  # Playback tests mostly wait on real-time audio, so more tests than cores
  # run at once.
  if ! bash scripts/run-ctest.sh "$dir" -j$(( jobs * 2 )) --output-on-failure --timeout 600 $([[ $name == normal ]] || echo -LE load); then
    stage_failed "$name" "$dir"
  fi
}

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:${ASAN_OPTIONS:-}"
export LSAN_OPTIONS="suppressions=$PWD/tests/lsan-suppressions.txt:${LSAN_OPTIONS:-}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:${UBSAN_OPTIONS:-}"
export TSAN_OPTIONS="suppressions=$PWD/tests/tsan-suppressions.txt:halt_on_error=1:second_deadlock_stack=1:${TSAN_OPTIONS:-}"

for build in $builds; do
  case "$build" in
    # Every target (daemon, client, tests, test support, the FUSE helper,
    # benchmarks) compiled by clang, which checks the lock annotations as
    # errors (USBMEDIA_THREAD_SAFETY). Nothing runs: the analysis is per
    # source file, and the other stages run the suites. First, since it fails
    # in about a minute: -O0 without debug information, the cheapest compile.
    clang)
      echo "=== clang: configure and build every target (lock annotations checked)"
      clang_start=$SECONDS
      { CC=clang CXX=clang++ cmake -S . -B build-clang -DCMAKE_BUILD_TYPE=Debug \
          -DCMAKE_C_FLAGS_DEBUG=-O0 -DCMAKE_CXX_FLAGS_DEBUG=-O0 \
          -DUSBMEDIA_THREAD_SAFETY=ON -DUSBMEDIA_BUILD_BENCH=ON >/dev/null &&
        cmake --build build-clang -j"$jobs"; } || stage_failed clang
      echo "=== clang: stage took $(( SECONDS - clang_start )) s"
      ;;
    normal) run_suite normal build -DCMAKE_BUILD_TYPE=RelWithDebInfo ;;
    # The Debian package from the normal build: contents, install, "ping".
    package) bash scripts/package-check.sh build || stage_failed package ;;
    asan) run_suite "asan+ubsan" build-asan -DCMAKE_BUILD_TYPE=Debug -DUSBMEDIA_SANITIZE=address ;;
    tsan) run_suite tsan build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DUSBMEDIA_SANITIZE=thread ;;
    # The control interface under libFuzzer for a bounded time (clang).
    fuzz) bash scripts/fuzz.sh || stage_failed fuzz ;;
    # The device's build (armhf) under qemu-arm: unit, integration, load
    # (one at a time) and smoke tests.
    armhf)
      echo "=== armhf: cross build and tests under emulation"
      armhf_start=$SECONDS
      USBMEDIA_JOBS=$jobs bash scripts/cross-armhf.sh || stage_failed armhf build-armhf
      echo "=== armhf: stage took $(( SECONDS - armhf_start )) s"
      ;;
    # The armhf package on a whole emulated board: systemd, udev, a USB
    # stick plugged and pulled, sound through ALSA (scripts/board-armhf.sh).
    board)
      echo "=== board: the armhf package on an emulated board"
      board_start=$SECONDS
      bash scripts/board-armhf.sh || stage_failed board
      echo "=== board: stage took $(( SECONDS - board_start )) s"
      ;;
    *) echo "unknown build: $build" >&2; exit 2 ;;
  esac
done

if (( status == 0 )); then
  echo "=== all stages passed: $builds"
else
  echo "=== FAILED stages:"
  printf '  %s\n' "${failed[@]}"
fi
exit $status

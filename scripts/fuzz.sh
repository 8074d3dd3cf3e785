#!/usr/bin/env bash
# Builds the control-interface fuzzer with clang (ASan+UBSan+libFuzzer) in
# build-fuzz and runs it for a bounded time. The build compiles every product
# source with -Wthread-safety -Werror=thread-safety, so a broken lock
# annotation fails here. Exits non-zero on any finding;
# the crashing input is left in build-fuzz/artifacts/.
#   USBMEDIA_FUZZ_SECONDS  run time in seconds (default 240)
#   extra arguments replace the corpus (e.g. a crash file to replay it; give
#   absolute paths: the fuzzer works inside its temporary root)
set -euo pipefail
cd "$(dirname "$0")/.."

# 240 s: with the dictionary's invalid UTF-8 tokens, a run without the
# regression seed refound the NUL-in-path loop after about 132,000 executions
# (190 s on an idle machine); this time gives about 65,000 executions on a
# loaded machine and 170,000 to 200,000 on an idle one. The seed of that
# finding (corpus/invalid-utf8-folder.json) replays it on every run.
seconds=${USBMEDIA_FUZZ_SECONDS:-240}
dir=$PWD/build-fuzz

# clang and its fuzzer runtime ship with the build image; install them if not.
if ! command -v clang++ >/dev/null || ! dpkg-query -W -f='${Status}' libclang-rt-14-dev 2>/dev/null |
    grep -q "install ok installed"; then
  SUDO=$([ "$(id -u)" -eq 0 ] || echo sudo)
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends clang libclang-rt-14-dev
fi

echo "=== fuzz: configure and build"
CC=clang CXX=clang++ cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DUSBMEDIA_FUZZ=ON -DUSBMEDIA_THREAD_SAFETY=ON \
  -DUSBMEDIA_BUILD_TESTS=OFF -DUSBMEDIA_BUILD_BENCH=OFF >/dev/null
cmake --build "$dir" -j"$(nproc)" --target rpc-dispatch-fuzzer

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:${ASAN_OPTIONS:-}"
# print_suppressions=0: no summary of the (GLib, GStreamer) suppressions after
# every leak check.
export LSAN_OPTIONS="suppressions=$PWD/tests/lsan-suppressions.txt:print_suppressions=0:${LSAN_OPTIONS:-}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:${UBSAN_OPTIONS:-}"

# New inputs go to a working corpus in the build dir; the seeds stay as checked in.
mkdir -p "$dir/corpus" "$dir/artifacts"
inputs=("$@")
if [ ${#inputs[@]} -eq 0 ]; then
  inputs=("$dir/corpus" "$PWD/tests/fuzz/corpus")
fi
echo "=== fuzz: run for ${seconds}s"
# The target's own messages repeat endlessly: each distinct line is shown once
# (scripts/quiet-repeats.awk), a finding's report in full.
set +e
"$dir/rpc-dispatch-fuzzer" \
  -max_total_time="$seconds" -rss_limit_mb=4096 -timeout=30 -max_len=8192 \
  -dict="$PWD/tests/fuzz/rpc.dict" -close_fd_mask=1 -print_final_stats=1 \
  -artifact_prefix="$dir/artifacts/" "${inputs[@]}" 2>&1 | awk -f "$PWD/scripts/quiet-repeats.awk"
codes=("${PIPESTATUS[@]}")
set -e
exit "${codes[0]}"

#!/usr/bin/env bash
# The tag library's rows: makes (or takes from the cache) a stick of 10,000
# tagged tracks of about 40 KiB and one of 50,000 of about 4 KiB, times the
# references on the first, a bare TagLib loop and mpd's full update (medians
# of three), and
# hands them to library_bench, which measures the daemon in the same run.
# Every program runs under nice: the machine is shared.
# Usage: bench/library.sh BUILD_DIR
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-bench}

tree=$(nice /usr/bin/python3 bench/make_tag_tree.py --tracks 10000 --kib 40)
big_tree=$(nice /usr/bin/python3 bench/make_tag_tree.py --tracks 50000 --kib 4)

# One pass to warm the page cache for everyone, then the median of three.
nice "$build/bench/taglib_loop" "$tree" 1 >&2
taglib=$(nice "$build/bench/taglib_loop" "$tree" 3 | tee /dev/stderr | awk '{print $2}' | sort -n | sed -n 2p)
mpd=$(for run in 1 2 3; do nice /usr/bin/python3 bench/mpd_update.py "$tree"; done |
  tee /dev/stderr | awk '{print $2}' | sort -n | sed -n 2p)

nice "$build/bench/library_bench" "$tree" "$big_tree" "$taglib" "$mpd"

#!/usr/bin/env bash
# The tag library's rows: makes (or takes from the cache) a stick of 10,000
# tagged tracks of about 40 KiB and one of 50,000 of about 4 KiB, reads the
# first once to warm the page cache, and runs library_bench, which times the
# daemon beside its references (a bare TagLib loop, mpd's full update) in
# the same run. Everything runs under nice: the machine is shared.
# Usage: bench/library.sh BUILD_DIR
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-bench}

tree=$(nice /usr/bin/python3 bench/make_tag_tree.py --tracks 10000 --kib 40)
big_tree=$(nice /usr/bin/python3 bench/make_tag_tree.py --tracks 50000 --kib 4)
nice "$build/bench/taglib_loop" "$tree" 1 >&2
loop=$(cd "$build/bench" && pwd)/taglib_loop
nice "$build/bench/library_bench" "$tree" "$big_tree" "$loop" "$PWD/bench/mpd_update.py"

#!/bin/bash
# SPDX-License-Identifier: MIT
# fuzz/run_target.sh TARGET SECONDS [SEED]: runs one fuzz target, from its corpus on, for that long. What it finds new goes to a
# folder that is thrown away, what breaks it to BUILD/artifacts. FUZZ_BUILD_DIR says where the targets were built (build/fuzz).
# The seed is printed; non-zero when the target broke, took too long over one input, or used too much memory.
set -euo pipefail
cd "$(dirname "$0")/.."

target=${1:?which target} seconds=${2:?how many seconds}
seed=${3:-$((RANDOM * 32768 + RANDOM + 1))}
build=$(realpath "${FUZZ_BUILD_DIR:-build/fuzz}")

# One input is never worth more: the slowest known takes a hundredth of it.
timeout_seconds=10 memory_mb=1536 largest_input=16384

found=$(mktemp -d "${TMPDIR:-/tmp}/mdnsproxy-fuzz.XXXXXX")
trap 'rm -rf "$found"' EXIT
mkdir -p "$build/artifacts"
echo "fuzz target $target, $seconds s, seed $seed"
# Leaks are told by the target itself, which asks the tracking allocator; the way out of the process leaves things behind.
export ASAN_OPTIONS=detect_leaks=0:allocator_may_return_null=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
"$build/fuzz_$target" -max_total_time="$seconds" -seed="$seed" -timeout="$timeout_seconds" -rss_limit_mb="$memory_mb" \
  -max_len="$largest_input" -close_fd_mask=1 -print_final_stats=1 -verbosity=1 \
  -artifact_prefix="$build/artifacts/$target-" "$found" "fuzz/corpus/$target" 2>&1 |
  grep -v -E '^#[0-9]+\s+(NEW|REDUCE|RELOAD|pulse)|NEW_FUNC|# Uses:|Recommended dictionary' | tail -n 60

#!/bin/bash
# SPDX-License-Identifier: MIT
# fuzz/run_all.sh SECONDS [SEED]: every fuzz target for that long, two at a time. Builds them first. The seed is printed, so that
# a run can be repeated; the status is non-zero when a target broke.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:?how many seconds for each target} seed=${2:-$((RANDOM * 32768 + RANDOM + 1))}

fuzz/build.sh
echo "seed $seed"
xargs -P 2 -I TARGET fuzz/run_target.sh TARGET "$seconds" "$seed" <fuzz/targets.txt

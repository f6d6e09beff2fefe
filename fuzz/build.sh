#!/bin/bash
# SPDX-License-Identifier: MIT
# fuzz/build.sh: builds every fuzz target, optimised, with clang's sanitizers into FUZZ_BUILD_DIR (build/fuzz).
set -euo pipefail
cd "$(dirname "$0")/.."
build=${FUZZ_BUILD_DIR:-build/fuzz}
if command -v ccache >/dev/null; then
  export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
fi
mkdir -p "$build"
cmake --preset fuzz -B "$build" >"$build/configure.log" 2>&1 || { cat "$build/configure.log"; exit 1; }
cmake --build "$build" --target fuzz_targets

#!/usr/bin/env bash
# Builds the project with AddressSanitizer and UndefinedBehaviorSanitizer and
# runs the whole test suite (unit tests, the command line end to end, real
# encoder files, the robustness corpus and the example cases), then builds,
# checks and installs the Debian packages (scripts/package-check.sh; set
# SONDREL_SKIP_PACKAGES=1 to leave that out).
# Usage: scripts/test.sh [preset]   (asan by default; debug or release also work)
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-asan}"
jobs="$(nproc)"
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j "$jobs"
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
export QT_QPA_PLATFORM="${QT_QPA_PLATFORM:-offscreen}"
ctest --preset "$preset" -j "$jobs" --timeout 900
if [ "${SONDREL_SKIP_PACKAGES:-0}" != 1 ]; then
  bash scripts/package-check.sh
fi

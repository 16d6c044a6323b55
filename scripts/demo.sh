#!/usr/bin/env bash
# First run: installs the Debian packages the project needs, builds the
# release configuration, writes the sample library and checks it, printing
# the log to standard output.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)"
rm -rf build/samples
build/release/samples/sondrel_samples build/samples
build/release/cli/sondrel --log - build/samples || true

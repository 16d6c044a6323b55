#!/usr/bin/env bash
# First run: installs the Debian packages the command line program needs,
# builds it alone (release, without the tests, benchmarks, desktop program or
# fuzz targets: the "cli" preset), writes the sample library and checks it,
# printing the log to standard output. scripts/test.sh builds everything.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh cli
cmake --preset cli >/dev/null
cmake --build --preset cli -j "$(nproc)"
rm -rf build/samples
build/cli/samples/sondrel_samples build/samples
build/cli/cli/sondrel --log - build/samples || true

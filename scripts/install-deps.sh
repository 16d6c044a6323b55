#!/usr/bin/env bash
# Installs every Debian package that building, testing, fuzzing, benchmarking
# and packaging need; with the argument "cli", only what building the command
# line program needs (the first run, scripts/demo.sh).
# Safe to run again: apt-get skips what is already there.
set -euo pipefail

cli_packages=(
  build-essential g++ cmake ninja-build pkg-config
  libicu-dev libfmt-dev libcli11-dev liburiparser-dev nlohmann-json3-dev
  libjpeg62-turbo-dev libpng-dev libgif-dev libwebp-dev libtiff-dev libstb-dev
  libavif-dev libheif-dev libjxl-dev
  libflac-dev libmpg123-dev libwavpack-dev libvorbis-dev libopusfile-dev
  libavformat-dev libavcodec-dev libavutil-dev
  libsqlite3-dev
)

packages=(
  "${cli_packages[@]}"
  # toolchain and build
  clang clang-format libclang-rt-14-dev
  # coverage report of the fuzz corpora (llvm-profdata, llvm-cov)
  llvm-14
  # tests and benchmarks
  libgtest-dev libgmock-dev googletest libbenchmark-dev python3 bc time hyperfine python3-jsonschema
  # shard tests run the shards through GNU parallel; the Kubernetes recipe is read with PyYAML
  parallel python3-yaml
  # desktop application and its headless tests
  qt6-base-dev qt6-base-dev-tools libgl-dev xvfb xauth
  # real encoders and taggers that make clean files during the test run, and tools compared in benchmarks
  ffmpeg lame flac vorbis-tools opus-tools wavpack sox eyed3 python3-mutagen id3v2 atomicparsley mp3val mpg123
  libavif-bin libheif-examples libjxl-tools
  # Debian packages: building them, checking them, and what the check runs on the installed files
  devscripts debhelper dpkg-dev lintian fakeroot desktop-file-utils appstream man-db bash-completion qt6-qpa-plugins
  zsh fish
)

[ "${1:-}" = cli ] && packages=("${cli_packages[@]}")

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done

if [ "${#missing[@]}" -gt 0 ]; then
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
echo "install-deps: all packages present"

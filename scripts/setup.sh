#!/usr/bin/env bash
# Installs every build, test and tool dependency from Debian packages.
# Idempotent: when everything is present it only checks and returns.
set -euo pipefail

packages=(
  cmake g++ make pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  libflatbuffers-dev flatbuffers-compiler
  libsoundtouch-dev libfftw3-dev libkissfft-dev
  libsndfile1-dev sox
  libmysofa-dev libmysofa1
  python3 python3-numpy python3-scipy
  nlohmann-json3-dev libcli11-dev libcairo2-dev
  lv2-dev lilv-utils gstreamer1.0-tools gstreamer1.0-plugins-bad ffmpeg
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "setup: installing ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"

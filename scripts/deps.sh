#!/usr/bin/env bash
# Installs the Debian packages the build and tests need, when missing.
set -euo pipefail
packages=(cmake g++ gcc ninja-build pkg-config libpugixml-dev libgtest-dev libgmock-dev libbenchmark-dev binutils)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo=""
  [ "$(id -u)" = 0 ] || sudo="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq "${missing[@]}"
fi

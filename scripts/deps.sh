#!/usr/bin/env bash
# Installs the Debian packages the build, the tour and the tests need, when
# missing. Without root or sudo, or when apt fails, it names what is missing
# and how to install it, and fails.
#   CIMXML_EXTRA_PACKAGES="a b"   also require these (lets the failure path be tried)
set -euo pipefail
packages=(cmake g++ gcc ninja-build pkg-config libpugixml-dev libgtest-dev libgmock-dev libbenchmark-dev binutils
          libcli11-dev nlohmann-json3-dev libssl-dev openssl)
read -r -a extra <<<"${CIMXML_EXTRA_PACKAGES:-}"
packages+=("${extra[@]}")

missing_packages() {
  local p
  for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || echo "$p"
  done
}

mapfile -t missing < <(missing_packages)
[ ${#missing[@]} -eq 0 ] && exit 0

give_up() {
  echo "deps.sh: $1" >&2
  echo "deps.sh: these Debian packages are missing:" >&2
  printf '  %s\n' "${missing[@]}" >&2
  echo "deps.sh: install them with:" >&2
  local s="sudo "
  [ "$(id -u)" != 0 ] || s=""
  echo "  ${s}apt-get update && ${s}apt-get install -y ${missing[*]}" >&2
  exit 1
}

if [ "$(id -u)" = 0 ]; then
  sudo=()
elif command -v sudo >/dev/null 2>&1; then
  sudo=(sudo)
else
  give_up "cannot install: not root and sudo is not available."
fi

echo "deps.sh: installing ${missing[*]}" >&2
# Through env, since sudo does not pass the caller's environment on.
"${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq || give_up "apt-get update failed."
"${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}" || give_up "apt-get install failed."

# apt can succeed without installing a name (a virtual package, say).
mapfile -t missing < <(missing_packages)
[ ${#missing[@]} -eq 0 ] || give_up "apt-get did not install everything."

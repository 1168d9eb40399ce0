#!/usr/bin/env bash
# Installs every Debian package that the build, tests, demo and benchmarks need.
# Idempotent: packages already present are skipped, and apt is not touched at all
# when nothing is missing.
set -euo pipefail

PACKAGES=(
  g++ make cmake pkg-config
  libjsoncpp-dev libtinyxml2-dev libcurl4-openssl-dev libssl-dev openssl
  libcpp-httplib-dev libgtest-dev libgmock-dev libbenchmark-dev
  libqrencode-dev
  doxygen
  ca-certificates procps
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  if command -v sudo >/dev/null 2>&1; then SUDO="sudo"; else
    echo "install-deps: missing packages (${missing[*]}) and no root rights" >&2
    exit 1
  fi
fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"

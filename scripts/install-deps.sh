#!/usr/bin/env bash
# Installs every Debian package that the build, tests, demo and benchmarks need,
# and the browser tests' pinned npm packages (tests/browser/package-lock.json).
# Idempotent: packages already present are skipped, apt is not touched at all
# when nothing is missing, and npm runs only when the lock file changed.
set -euo pipefail

PACKAGES=(
  g++ make cmake pkg-config
  libjsoncpp-dev libtinyxml2-dev libcurl4-openssl-dev libssl-dev openssl
  libcpp-httplib-dev libgtest-dev libgmock-dev libbenchmark-dev
  libqrencode-dev
  doxygen
  ca-certificates procps
  chromium
)
# The browser tests run under Node.js; Debian's is enough where there is none.
command -v npm >/dev/null 2>&1 || PACKAGES+=(nodejs npm)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -gt 0 ]; then
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
fi

# playwright-core as the lock file pins it; it drives the system's chromium and
# downloads no browser of its own.
browser_dir="$(cd "$(dirname "$0")/.." && pwd)/tests/browser"
stamp="$browser_dir/node_modules/.kx-installed-lock"
if ! cmp -s "$browser_dir/package-lock.json" "$stamp"; then
  echo "install-deps: npm ci in tests/browser"
  (cd "$browser_dir" && PLAYWRIGHT_SKIP_BROWSER_DOWNLOAD=1 npm ci --no-audit --no-fund --loglevel=error)
  cp "$browser_dir/package-lock.json" "$stamp"
fi

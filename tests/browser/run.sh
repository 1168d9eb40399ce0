#!/usr/bin/env bash
# The browser test as ctest runs it: kxsim on a free port with a fresh state,
# then dashboard.test.js under node. The dashboard's screenshot stays in
# BUILD/tests/browser/ as the test's artifact.
set -uo pipefail
build=$(cd "$1" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
artifacts="$build/tests/browser"
mkdir -p "$artifacts"
work=$(mktemp -d "${TMPDIR:-/tmp}/kxbrowser.XXXXXX")
source "$here/../../scripts/sim.sh"
trap 'sim_stop; rm -rf "$work"' EXIT
sim_start "$build/tools/kxsim/kxsim" "$work" || exit 1
KX_BASE=$BASE KX_WORK=$work KX_ARTIFACTS=$artifacts KXAPI="$build/tools/kxapi/kxapi" \
  node "$here/dashboard.test.js"

#!/usr/bin/env bash
# Runs each example against a fresh kxsim that approves at once.
set -uo pipefail
build=$1
here=$(cd "$(dirname "$0")" && pwd)
source "$here/../scripts/sim.sh"
work=$(mktemp -d)
trap 'sim_stop; rm -rf "$work"' EXIT
sim_start "$build/tools/kxsim/kxsim" "$work" --auto-approve || exit 1

failed=0
run() {
  local name=$1 input=$2
  shift 2
  echo "== $name $*"
  if ! printf '%s' "$input" | "$build/examples/$name" "$@"; then
    echo "-- FAILED" && failed=$((failed + 1))
  fi
}
run hash_road "Contract of 23 November." demo demo-password demo-pin
run witness_sign "Contract of 23 November." org-0001 acc-0001 contract.txt
run bid_login "" kxdemo-app
[ $failed -eq 0 ]

#!/usr/bin/env bash
# Runs the whole demo, then searches its log for what must never be there:
# every password, sign PIN and secret the demo used (on its command lines and
# in its configuration), private key material, and unmasked identity numbers
# and login accounts of the simulator's accounts. What is logged on purpose
# (tokens, replies, names) is not searched for.
set -uo pipefail
build=$1
src=$(cd "$(dirname "$0")/.." && pwd)
keep=$(mktemp -d)
trap 'rm -rf "$keep"' EXIT

DEMO_KEEP="$keep/demo" bash "$src/scripts/demo.sh" "$build" >"$keep/demo.out" 2>&1 ||
  { tail -30 "$keep/demo.out"; echo "log audit: the demo failed" >&2; exit 1; }
log="$keep/demo/kxserverapi.log"
[ -s "$log" ] || { echo "log audit: no log at $log" >&2; exit 1; }

needles=()
# Values of secret options on the demo's command lines.
while read -r value; do needles+=("$value"); done < <(
  grep '^\$ kxapi' "$keep/demo.out" |
    grep -oE -- '--(password|sign-pwd|pin|secret|pwd)[ =][^ ]+' | sed -E 's/^--[a-z-]+[ =]//' | sort -u)
# Secret values of the configuration (clear ones; enciphered ones are not the secret).
while read -r value; do needles+=("$value"); done < <(
  grep -hiE '^(ProjectSecret|appSecret|[A-Za-z]*Password|[A-Za-z]*Pwd)=' "$keep"/demo/*.ini 2>/dev/null |
    sed 's/^[^=]*=//' | grep -v '^KXENC1:' | grep -v '^$' | sort -u)
# The simulator's accounts: identity numbers, phone numbers (login accounts), passwords, PINs.
while read -r value; do needles+=("$value"); done < <(
  grep -oE '"[0-9]{17}[0-9X]"|"1[3-9][0-9]{9}"|"[a-z0-9]+-(password|pin)"' \
    "$src/tools/kxsim/SimState.cpp" | tr -d '"' | sort -u)
# Private keys: their armour, and a line from the body of each key file.
needles+=("PRIVATE KEY")
while read -r key; do
  line=$(sed -n '3p' "$key")
  [ -n "$line" ] && needles+=("$line")
done < <(find "$keep/demo" -name '*.key' -type f)

# Log records (a record may span lines: replies are logged as they came),
# without those whose exit line hands out an identity number or phone number
# on purpose: the platform's identity look-ups.
records="$keep/records.log"
awk '/^[0-9][0-9][0-9][0-9]-[0-9][0-9]-[0-9][0-9] / { if (rec != "" && !skip) print rec; rec = $0;
       skip = ($0 ~ /- CCorvaneApi::(GetIdentityInfo|GetAllInfo)> <"lRes:/); next }
     { rec = rec "\\n" $0 }
     END { if (rec != "" && !skip) print rec }' "$log" >"$records"

found=0
for needle in "${needles[@]}"; do
  [ ${#needle} -ge 4 ] || continue
  if grep -aqF -- "$needle" "$records"; then
    echo "log audit: found '$needle' in the log:" >&2
    grep -anF -- "$needle" "$records" | head -3 | cut -c1-300 >&2
    found=$((found + 1))
  fi
done
echo "log audit: searched $(wc -l <"$records") log records for ${#needles[@]} values; found $found"
[ $found -eq 0 ]

#!/usr/bin/env bash
# The demo flow: starts kxsim on a free port, points the library at it with a
# temporary configuration, runs each step with kxapi and prints its result.
# Exits 0 only when every step did what it should.
set -uo pipefail

BUILD_DIR=${1:-build}
KXSIM="$BUILD_DIR/tools/kxsim/kxsim"
KXAPI="$BUILD_DIR/tools/kxapi/kxapi"
for bin in "$KXSIM" "$KXAPI"; do
  [ -x "$bin" ] || { echo "demo: $bin is not built (run 'make build')" >&2; exit 1; }
done

source "$(dirname "$0")/sim.sh"
WORK=$(mktemp -d "${TMPDIR:-/tmp}/kxdemo.XXXXXX")
SIM_PID=""
# DEMO_KEEP=DIR keeps the demo's files (log, configuration, keys, the
# simulator's state) there for a look afterwards; the log audit reads them.
cleanup() {
  sim_stop
  if [ -n "${DEMO_KEEP:-}" ]; then
    rm -rf "$DEMO_KEEP" && mkdir -p "$DEMO_KEEP" && cp -r "$WORK"/. "$DEMO_KEEP"/
  fi
  rm -rf "$WORK"
}
trap cleanup EXIT

sim_start "$KXSIM" "$WORK" --auto-approve || exit 1

STEP=0
FAILED=0
# step TITLE EXPECT(ok|refused) -- kxapi arguments...
step() {
  local title=$1 expect=$2
  shift 3
  STEP=$((STEP + 1))
  printf '\n== Step %d: %s\n$ kxapi %s\n' "$STEP" "$title" "$*"
  "$KXAPI" "$@" >"$WORK/out" 2>"$WORK/err"
  local status=$?
  cat "$WORK/out"
  sed 's/^/   /' "$WORK/err"
  if { [ "$expect" = ok ] && [ $status -eq 0 ]; } || { [ "$expect" = refused ] && [ $status -eq 1 ]; }; then
    printf -- '-- ok\n'
  else
    printf -- '-- FAILED (exit status %d)\n' "$status"
    FAILED=$((FAILED + 1))
  fi
}

echo "kxsim serves at $BASE (HTTPS, its own CA); configuration: $KX_CONFIG_FILE"

step "the server description the library reads for kxsim" ok -- server-config KXSim
step "services of a certificate and a UKey, over verified HTTPS" ok -- \
  cert-services --cert-sn 5A1B2C3D --ukey-num KXUKEY0001
step "services of an unknown certificate: the server's code reaches the caller" refused -- \
  cert-services --cert-sn 00009999
step "authorization value of the legacy server, fetched from its URL" ok -- legacy-auth
sed 's/^ProjectSecret=.*/ProjectSecret=not-the-secret/' "$KX_CONFIG_FILE" >"$WORK/wrong-secret.ini"
step "a platform request signed with a wrong secret is refused" refused -- \
  --config "$WORK/wrong-secret.ini" call KXSim GET /v1/accounts/demo
step "the platform account behind an OAuth2 code" ok -- \
  platform whoami --code kxcode-demo --redirect-uri https://app.example/callback --org org-0001
step "an OAuth2 code the platform never issued" refused -- \
  platform whoami --code bogus --redirect-uri https://app.example/callback
step "an encryption task, once the account's will is confirmed on the device" ok -- \
  platform encrypt-task --account acc-0001 --key EPK --interval-ms 300
printf 'Contract between the demo organisation and its partner.\n' >"$WORK/contract.txt"
step "a document signed under a witness flow (kxsim approves on the device after a few polls)" ok -- \
  platform sign --org org-0001 --account acc-0001 --doc "$WORK/contract.txt" --interval-ms 300

# BID sign service: a login approved on the device (kxsim approves at the
# first poll), then the token drives file signing, an envelope made by
# OpenSSL, an authorisation with text signing, seals and the logout.
bid_value() { sed -n "s/.*\"$1\" : \"\([^\"]*\)\".*/\1/p" "$WORK/out" | head -1; }
# check TITLE -- command...: a step done by the shell, not by kxapi
bid_check() {
  local title=$1
  shift 2
  STEP=$((STEP + 1))
  printf '\n== Step %d: %s\n' "$STEP" "$title"
  if "$@"; then printf -- '-- ok\n'; else printf -- '-- FAILED\n'; FAILED=$((FAILED + 1)); fi
}
step "a BID login, shown as a QR code and approved on the device" ok -- \
  bid login --cert-out "$WORK/bid-cert.pem" --enc-cert-out "$WORK/bid-enc.pem" --interval-ms 200
BID_TOKEN=$(bid_value token)
BID_ACCOUNT=$(bid_value ouid)
printf 'Offer of 23 November.\n' >"$WORK/offer.txt"
printf 'Acceptance of 24 November.\n' >"$WORK/acceptance.txt"
mkdir -p "$WORK/bid-sigs"
step "two files signed in one BID task" ok -- \
  bid sign-files "$WORK/offer.txt" "$WORK/acceptance.txt" --token "$BID_TOKEN" \
  --account "$BID_ACCOUNT" --seal-id seal-0001 --sig-dir "$WORK/bid-sigs" --no-qr --interval-ms 200
bid_verify_files() {
  openssl verify -CAfile "$WORK/sim-state/ca.pem" "$WORK/bid-cert.pem" &&
    openssl x509 -in "$WORK/bid-cert.pem" -pubkey -noout >"$WORK/bid-pub.pem" &&
    for f in offer acceptance; do
      openssl dgst -sha256 -verify "$WORK/bid-pub.pem" -signature "$WORK/bid-sigs/$f.txt.sig" \
        "$WORK/$f.txt" || return 1
    done
}
bid_check "OpenSSL verifies both signatures with the login's certificate" -- bid_verify_files
openssl rand 32 >"$WORK/bid-key.bin"
BID_ENVELOPE=$(openssl pkeyutl -encrypt -pkeyopt rsa_padding_mode:oaep -certin \
  -inkey "$WORK/bid-enc.pem" -in "$WORK/bid-key.bin" | base64 -w0)
step "a decrypt task opens an envelope OpenSSL made for the login's encryption certificate" ok -- \
  bid decrypt "$BID_ENVELOPE" --token "$BID_TOKEN" --no-qr --interval-ms 200
bid_check "the symmetric key that came back is the one OpenSSL sealed" -- \
  test "$(sed -n '/"symmetricKeys"/,/]/s/.*"\([A-Za-z0-9+\/=]\{20,\}\)".*/\1/p' "$WORK/out")" = \
  "$(base64 -w0 "$WORK/bid-key.bin")"
step "an authorisation task gives an authCode" ok -- \
  bid auth --token "$BID_TOKEN" --subject "text signing" --no-qr --interval-ms 200
BID_AUTH=$(bid_value authCode)
step "a text signed under the authCode" ok -- \
  bid sign-text --token "$BID_TOKEN" --auth-code "$BID_AUTH" --text "Pay 100 to the partner"
BID_SIG=$(bid_value signature)
step "the server verifies the signature over the text" ok -- \
  bid verify --token "$BID_TOKEN" --text "Pay 100 to the partner" --signature "$BID_SIG"
step "the same signature over a tampered text fails" refused -- \
  bid verify --token "$BID_TOKEN" --text "Pay 900 to the partner" --signature "$BID_SIG"
step "the user's seals, by organisation" ok -- \
  bid seals --token "$BID_TOKEN" --account "$BID_ACCOUNT" --org org-0001
step "BID logout" ok -- bid logout --token "$BID_TOKEN"
step "the logged-out token is refused (37007)" refused -- \
  bid seals --token "$BID_TOKEN" --account "$BID_ACCOUNT"

# Certificate services: a UKey's key and CSR made with OpenSSL, the CSR
# expanded into a double certificate at kxsim, the result checked.
if command -v openssl >/dev/null; then
  openssl req -new -newkey rsa:2048 -nodes -keyout "$WORK/ukey.key" -out "$WORK/ukey.csr" \
    -subj "/CN=KXUKEY0001" 2>/dev/null
  mkdir -p "$WORK/expanded"
  step "expand the UKey's certificate: four signed steps, polling until issued" ok -- \
    cert expand --ukey-num KXUKEY0001 --csr "$WORK/ukey.csr" --out-dir "$WORK/expanded" --interval-ms 200
  openssl x509 -in "$WORK/expanded/sign-cert.pem" -noout -subject -issuer -serial 2>/dev/null | sed 's/^/   /'
  STEP=$((STEP + 1))
  printf '\n== Step %d: both certificates chain to kxsim'"'"'s CA and certify the UKey'"'"'s key\n' "$STEP"
  if openssl verify -CAfile "$WORK/sim-state/ca.pem" "$WORK/expanded/sign-cert.pem" \
    "$WORK/expanded/enc-cert.pem" &&
    [ "$(openssl x509 -in "$WORK/expanded/sign-cert.pem" -noout -pubkey)" = \
      "$(openssl pkey -in "$WORK/ukey.key" -pubout)" ]; then
    printf -- '-- ok\n'
  else
    printf -- '-- FAILED\n'
    FAILED=$((FAILED + 1))
  fi
  step "check the new signing certificate at the cloud platform (XML)" ok -- \
    cert check --cert "$WORK/expanded/sign-cert.pem"
  step "check the new encryption certificate at the agent (JSON)" ok -- \
    cert check --cert "$WORK/expanded/enc-cert.pem" --section KXCloudCheckAgent
  SERIAL=$(openssl x509 -in "$WORK/expanded/sign-cert.pem" -noout -serial | sed 's/^serial=//')
  openssl req -x509 -newkey rsa:2048 -nodes -keyout "$WORK/stranger.key" -out "$WORK/stranger.pem" \
    -subj "/CN=stranger" -days 1 2>/dev/null
  step "a certificate of another CA is refused by the cloud platform" refused -- \
    cert check --cert "$WORK/stranger.pem"
  step "a UKey whose service has expired: the expansion stops before filing a request" refused -- \
    cert expand --ukey-num 0000DEAD --csr "$WORK/ukey.csr" --out-dir "$WORK/expanded"
  step "revoke the signing certificate at kxsim" ok -- \
    call KXSim POST /kxsim/cert/revoke --body "{\"sn\":\"$SERIAL\"}"
  step "the revoked certificate is refused" refused -- \
    cert check --cert "$WORK/expanded/sign-cert.pem"
  step "apply for a certificate at the legacy server" ok -- \
    cert apply --csr "$WORK/ukey.csr" --info '{"ukeyNum":"KXUKEY0002"}' --out-dir "$WORK"
  step "a wrong PIN on UKey KXUKEY0002: one try fewer" ok -- ukey try --sn KXUKEY0002 --failure
  step "the UKey reports itself locked" ok -- ukey try --sn KXUKEY0002 --failure --locked
  step "a locked key stays locked after a right PIN" ok -- ukey try --sn KXUKEY0002 --success
else
  echo "demo: openssl not found, certificate steps skipped (run 'make deps')" >&2
  FAILED=$((FAILED + 1))
fi

# The road of one hash through the seal server, then OpenSSL checks the signature.
printf 'Contract of 23 November between the demo parties.\n' >"$WORK/contract.txt"
printf 'demo-password\n' >"$WORK/password"
step "seal list of the demo user (discovery, login, list, logout)" ok -- \
  seal list --user demo --password-file "$WORK/password"
step "the road of one hash: the contract's SHA-256 signed by the user's first seal" ok -- \
  seal sign --user demo --password demo-password --sign-pwd demo-pin \
  --file "$WORK/contract.txt" --cert-out "$WORK/seal-cert.pem" --sig-out "$WORK/signature.bin"
STEP=$((STEP + 1))
printf '\n== Step %d: verify the returned signature with OpenSSL against the seal certificate\n' "$STEP"
if openssl verify -CAfile "$WORK/sim-state/ca.pem" "$WORK/seal-cert.pem" &&
  openssl x509 -in "$WORK/seal-cert.pem" -noout -subject &&
  openssl x509 -in "$WORK/seal-cert.pem" -pubkey -noout >"$WORK/seal-pub.pem" &&
  openssl dgst -sha256 -verify "$WORK/seal-pub.pem" -signature "$WORK/signature.bin" \
    "$WORK/contract.txt"; then
  echo "signature verified: RSA PKCS#1 v1.5 over SHA-256 of contract.txt, seal certificate issued by kxsim's CA"
  printf -- '-- ok\n'
else
  printf -- '-- FAILED (the signature did not verify)\n'
  FAILED=$((FAILED + 1))
fi
printf 'Contract of 24 November.\n' >"$WORK/other.txt"
STEP=$((STEP + 1))
printf '\n== Step %d: the same signature over another document does not verify\n' "$STEP"
if openssl dgst -sha256 -verify "$WORK/seal-pub.pem" -signature "$WORK/signature.bin" \
  "$WORK/other.txt" 2>/dev/null; then
  printf -- '-- FAILED (verified a document that was not signed)\n'
  FAILED=$((FAILED + 1))
else
  printf -- '-- ok\n'
fi
step "a wrong sign PIN: the seal server refuses to sign" refused -- \
  seal sign --user demo --password demo-password --sign-pwd wrong-pin --file "$WORK/contract.txt"
step "prints left of a document, at the seal-management server" ok -- \
  seal print-count get print-0001 --user demo --password demo-password
step "one print used: the number left written back" ok -- \
  seal print-count set print-0001 4 --user demo --password demo-password

# Document conversion at the seal server, then the seal certificate's seals
# from three services.
# pdf_step TITLE FILE TEXT: FILE is a PDF whose page shows TEXT
pdf_step() {
  STEP=$((STEP + 1))
  printf '\n== Step %d: %s\n' "$STEP" "$1"
  if [ "$(head -c 5 "$2" 2>/dev/null)" = "%PDF-" ] && grep -qF "($3) Tj" "$2"; then
    head -c 8 "$2" | sed 's/^/   /'
    printf '\n-- ok\n'
  else
    printf -- '-- FAILED (no PDF showing "%s")\n' "$3"
    FAILED=$((FAILED + 1))
  fi
}
printf 'Minutes of the demo meeting.\nAgreed: the contract is sealed.\n' >"$WORK/minutes.txt"
mkdir -p "$WORK/ps"
printf '%%!PS-Adobe-3.0\n%%%%IncludeFile: logo.eps\n72 720 moveto (Sealed copy) show showpage\n' \
  >"$WORK/ps/notice.ps"
printf '%%!PS-Adobe-3.0 EPSF-3.0\n%%%%BoundingBox: 0 0 10 10\n' >"$WORK/ps/logo.eps"
step "convert a text document to PDF at the seal server" ok -- \
  convert "$WORK/minutes.txt" "$WORK/minutes.pdf"
pdf_step "the result is a PDF with the document's text" "$WORK/minutes.pdf" "Minutes of the demo meeting."
step "convert a PostScript document: the server asks for logo.eps, which follows from its folder" ok -- \
  convert "$WORK/ps/notice.ps" "$WORK/notice.pdf"
pdf_step "the result is a PDF that names the dependent file" "$WORK/notice.pdf" "[logo.eps: 49 bytes]"
step "a document that is not there: nothing is sent" refused -- \
  convert "$WORK/absent.txt" "$WORK/absent.pdf"
step "the seal certificate's seals at the integrate service, by certificate" ok -- \
  seals by-cert --ypt --cert "$WORK/seal-cert.pem"
step "the same seals by the certificate's serial number" ok -- \
  seals by-cert --sn --cert "$WORK/seal-cert.pem"
step "the same seals from the sister seal service, after its access token (ASN.1 seals)" ok -- \
  seals by-cert --rbn --cert "$WORK/seal-cert.pem"
step "a certificate of another CA has no seals" refused -- \
  seals by-cert --sn --cert "$WORK/stranger.pem"

# Print control at the print-control service: a file registered for the
# encryption certificates of two accounts, one print, and SMS checks.
# value KEY: a string value of the last step's output
value() { sed -n "s/.*\"$1\" : \"\([^\"]*\)\".*/\1/p" "$WORK/out" | head -1; }
step "register the contract for demo and demo2, 3 prints per certificate" ok -- \
  print register --file "$WORK/contract.txt" --account demo --account demo2 --count 3
PRINT_ID=$(value printId)
CERT_SN=$(value certSn)
step "one print: 2 left" ok -- print update "$PRINT_ID" --remain 2
step "prints left of the registered file" ok -- print query "$PRINT_ID"
step "a count that would grow again is refused" refused -- print update "$PRINT_ID" --remain 3
step "the organisation of the certificate" ok -- print org --cert-sn "$CERT_SN"
step "kxsim sends an SMS code for the certificate (read from its phone endpoint)" ok -- \
  call KXPrintCtrl POST "/kxsim/sms/$CERT_SN"
step "the right SMS code passes" ok -- print verify-sms --cert-sn "$CERT_SN" --code "$(value code)"
step "kxsim sends another SMS code" ok -- call KXPrintCtrl POST "/kxsim/sms/$CERT_SN"
step "a wrong SMS code is refused" refused -- print verify-sms --cert-sn "$CERT_SN" --code wrong
step "the SMS check goes through the public gateway from now on" ok -- \
  config set KXPrintCtrl isGoGateWay 1
step "kxsim sends an SMS code" ok -- call KXPrintCtrl POST "/kxsim/sms/$CERT_SN"
step "the right SMS code passes through the gateway" ok -- \
  print verify-sms --cert-sn "$CERT_SN" --code "$(value code)"

# Records and reports: a sign record kept by the sample plug-in beside the
# library, a UKey event and a usage report as kxsim received them.
export KX_SEAL_RECORDS_FILE="$WORK/sign-records.jsonl"
step "a sign record handed to the seal plug-in" ok -- \
  record save --sign-data c2lnbmVkIGRhdGE= --sign-value c2lnbmF0dXJl --doc "$WORK/contract.txt"
step "a certificate record without its certificate is refused" refused -- \
  record save --type 3 --sign-data c2lnbmVkIGRhdGE= --sign-value c2lnbmF0dXJl
STEP=$((STEP + 1))
printf '\n== Step %d: the record as the sample plug-in stored it\n' "$STEP"
if sed 's/^/   /' "$KX_SEAL_RECORDS_FILE" && grep -q '"docName":"contract.txt"' "$KX_SEAL_RECORDS_FILE"; then
  printf -- '-- ok\n'
else
  printf -- '-- FAILED\n'
  FAILED=$((FAILED + 1))
fi
step "a UKey event, posted to the configured event URL" ok -- \
  event ukey --ukey-sn KXUKEY0001 --cert-sn 5A1B2C3D --cert-cn "Demo User"
step "a usage report of the signing, sent without waiting for it" ok -- \
  report sign '{"docName":"contract.txt","sealId":"seal-0001"}'
step "what kxsim received: the event and the report with the library's keys" ok -- \
  call KXSim GET /kxsim/records
if ! grep -q '"ukeySN" : "KXUKEY0001"' "$WORK/out" ||
  ! grep -q '"path" : "/v3/orbis/client/report/signLog"' "$WORK/out" ||
  ! grep -q '"clientVersion" : "kxdemo-project:0.1.0"' "$WORK/out"; then
  printf -- '-- FAILED (the event or the report did not arrive)\n'
  FAILED=$((FAILED + 1))
fi

printf '\n'
if [ $FAILED -eq 0 ]; then
  echo "demo: all $STEP steps did what they should"
else
  echo "demo: $FAILED of $STEP steps failed" >&2
  exit 1
fi

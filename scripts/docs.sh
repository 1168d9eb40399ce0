#!/usr/bin/env bash
# Builds the API reference of the exported headers with Doxygen into OUT_DIR
# (default build/docs; the pages are in OUT_DIR/html) and fails on any
# warning: an exported name without documentation is one (docs/Doxyfile).
# Doxygen says nothing about the free functions of a header that lacks a
# @file block, so every header the reference reads must have one.
set -euo pipefail

ROOT=$(cd "$(dirname "$0")/.." && pwd)
OUT_ARG=${1:-$ROOT/build/docs}
mkdir -p "$OUT_ARG"
OUT=$(cd "$OUT_ARG" && pwd)

if ! command -v doxygen >/dev/null 2>&1; then
  echo "docs: doxygen is not installed (scripts/install-deps.sh installs it)" >&2
  exit 1
fi

cd "$ROOT"
failed=0
# The headers of INPUT in docs/Doxyfile; a folder stands for its *.h.
for input in $(sed -n 's/^INPUT *= *//p' docs/Doxyfile); do
  for header in "$input" "$input"/*.h; do
    [ -f "$header" ] && [ "${header%.h}" != "$header" ] || continue
    if ! grep -Eq '^ */// *[@\\]file' "$header"; then
      echo "$header: no '/// @file' block, so its free functions would go unchecked" >&2
      failed=1
    fi
  done
done

LOG="$OUT/warnings.log"
KX_DOCS_OUT="$OUT" doxygen docs/Doxyfile 2>"$LOG" || failed=1
if [ -s "$LOG" ]; then
  cat "$LOG" >&2
  failed=1
fi
if [ "$failed" -ne 0 ]; then
  echo "docs: the reference has warnings (see above)" >&2
  exit 1
fi
echo "docs: $OUT/html/index.html"

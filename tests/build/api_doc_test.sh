#!/usr/bin/env bash
# Compares docs/api.md with what is exported, both ways: every plain C name and every public class with its header is
# described there, and nothing that is gone still is.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/../.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

{
  grep -v '^_Z' src/exported_names.txt
  sed -n 's/^class KIVO_API \([A-Za-z]*\) .*/\1/p' include/*.h
  printf '../%s\n' include/*.h
} | LC_ALL=C sort -u >"$work/there"
{
  grep -o '^| [^|]*' docs/api.md | grep -o '`[A-Za-z0-9]*`' | tr -d '`'
  grep -o '(\.\./include/[a-z_]*\.h)' docs/api.md | tr -d '()'
} | LC_ALL=C sort -u >"$work/told"

[ "$(wc -l <"$work/there")" -ge 50 ] || { echo "api_doc_test: too few names were found"; exit 1; }
diff "$work/there" "$work/told" || { echo "api_doc_test: < is not in docs/api.md, > is there and no longer exported"; exit 1; }

#!/usr/bin/env bash
# Keeps ARCHITECTURE.md true: every path it names in backticks exists (a glob
# matches at least one file), every Class::Function is defined or declared
# in the sources, and every other name in backticks occurs in them.
# Usage: check-architecture.sh [SOURCE_ROOT [DOCUMENT]]
set -euo pipefail
root=${1:-$(dirname "$0")/..}
cd "$root"
doc=${2:-ARCHITECTURE.md}
sources=(core library player control tools)

status=0
fail() { echo "$doc: $*" >&2; status=1; }
[ -f "$doc" ] || { fail "missing"; exit 1; }

while IFS= read -r token; do
  if [[ $token =~ ^[A-Za-z0-9_.*/-]+$ && ( $token == */* || $token =~ \.(cpp|h|md|sh|txt|cmake|json|py)$ ) ]]; then
    # A path, perhaps a glob; a trailing / names a directory.
    found=0
    for match in ${token%/}; do
      [ -e "$match" ] && found=1
    done
    [ $found = 1 ] || fail "names \`$token\`, which does not exist"
  elif [[ $token =~ ^([A-Za-z_][A-Za-z0-9_]*)::(~?[A-Za-z_][A-Za-z0-9_]*)$ ]]; then
    class=${BASH_REMATCH[1]} member=${BASH_REMATCH[2]}
    if ! grep -rqw -- "$class::$member" "${sources[@]}"; then
      # Defined in its class body: a file declaring the class and the member.
      found=0
      while IFS= read -r file; do
        grep -qw -- "$member" "$file" && found=1 && break
      done < <(grep -rlE "(class|struct) $class\b" "${sources[@]}" || true)
      [ $found = 1 ] || fail "names \`$token\`, which the sources do not define"
    fi
  elif [[ $token =~ ^[A-Za-z_][A-Za-z0-9_]*$ ]]; then
    grep -rqw -- "$token" "${sources[@]}" || fail "names \`$token\`, which the sources do not mention"
  fi
done < <(grep -o '`[^`]*`' "$doc" | tr -d '`' | sort -u)

[ $status = 0 ] && echo "$doc: every name found"
exit $status

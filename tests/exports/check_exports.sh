#!/usr/bin/env bash
# Checks that a DLL exports exactly one function, by name and undecorated.
#   check_exports.sh <objdump> <dll> <expected name> [<objdump> <dll> <expected name>]...
# Every DLL named must exist: a missing one fails the check.
set -u
passed=0
failed=0

check_one() {
  local objdump="$1" dll="$2" expected="$3" dump addresses names
  if [ ! -f "$dll" ]; then
    echo "FAIL $dll: missing (build that target first)"
    return 1
  fi
  if ! dump=$("$objdump" -p "$dll" 2>&1); then
    echo "FAIL $dll: $objdump could not read it"
    echo "$dump"
    return 1
  fi
  # Entries of the address table count exports by ordinal too, named or not.
  addresses=$(printf '%s\n' "$dump" | sed -n '/^Export Address Table -- /,/^$/p' | grep -cE '^\s*\[\s*[0-9]+\]')
  names=$(printf '%s\n' "$dump" | sed -n '/^\[Ordinal\/Name Pointer\] Table/,/^$/p' \
            | sed -nE 's/^\s*\[\s*[0-9]+\]\s+(.*)$/\1/p')
  if [ "$addresses" != 1 ] || [ "$names" != "$expected" ]; then
    echo "FAIL $dll: expected the single export '$expected', found $addresses address(es), names:"
    printf '  %s\n' $names
    return 1
  fi
  echo "ok   $dll exports only $expected"
  return 0
}

if [ $# -eq 0 ] || [ $(($# % 3)) -ne 0 ]; then
  echo "usage: $0 <objdump> <dll> <expected name> [...]"
  exit 2
fi
while [ $# -ge 3 ]; do
  if check_one "$1" "$2" "$3"; then passed=$((passed + 1)); else failed=$((failed + 1)); fi
  shift 3
done
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]

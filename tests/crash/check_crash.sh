#!/usr/bin/env bash
# Runs the crash program with KV_CRASH_ON_PURPOSE set and checks that the fault
# ended it with the filter's exit code, a report of the access violation, and a
# stack that names the faulting function.
#   check_crash.sh <wine-run.sh> <crash_tests.exe>
set -u
out=$(KV_CRASH_ON_PURPOSE=1 "$1" "$2" 2>&1)
rc=$?
out=${out//$'\r'/}
echo "$out"
fail() {
  echo "FAIL: $*"
  exit 1
}
[ "$rc" -eq 3 ] || fail "exit code $rc, not the crash filter's 3"
grep -q '^KV-CRASH: unhandled exception 0xc0000005 .*writing address 0x0$' <<<"$out" ||
  fail "no report of the write to address 0"
grep -q '^KV-CRASH: #0 .*crash_tests.exe+0x' <<<"$out" || fail "the first frame is not in the program"
grep -q 'CrashOnPurpose' <<<"$out" || fail "the faulting function is not named"
echo "PASS: the fault ended the program at once with a backtrace"

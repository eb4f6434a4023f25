#!/bin/sh
# Runs a command the way a user does and checks what a user sees.
#   tool_expect.sh STATUS REGEX... -- COMMAND [ARGS...]
# Passes when COMMAND exits with STATUS and every extended REGEX matches a
# line of its output (standard output and standard error together).
expected=$1
shift
n=0
while [ $# -gt 0 ] && [ "$1" != "--" ]; do
  n=$((n + 1))
  eval "regex_$n=\$1"
  shift
done
[ "$1" = "--" ] || { echo "tool_expect.sh: no -- before the command" >&2; exit 2; }
shift
output=$("$@" 2>&1)
status=$?
printf '%s\n' "$output"
fail=0
if [ "$status" -ne "$expected" ]; then
  echo "tool_expect.sh: exit status $status, expected $expected" >&2
  fail=1
fi
i=1
while [ $i -le $n ]; do
  eval "regex=\$regex_$i"
  if ! printf '%s\n' "$output" | grep -Eq -- "$regex"; then
    echo "tool_expect.sh: no line matches: $regex" >&2
    fail=1
  fi
  i=$((i + 1))
done
exit $fail

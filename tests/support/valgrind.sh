#!/bin/sh
# Runs a test program under valgrind's memory check, with all programs of this tree that it starts:
#
#     valgrind.sh PROGRAM ARGUMENT...
#
# The exit status is that of the program, or 99 where valgrind has something to say about it or about
# one of the processes it has started, whatever their own exit statuses were and whoever has read them.
set -u
found=99
logs=$(mktemp -d)
trap 'rm -rf "$logs"' EXIT

# Quiet: a log without a finding is empty. Programs of the system are not ours to check.
status=0
valgrind --quiet --vgdb=no --keep-debuginfo=yes --log-file="$logs/%p" --error-exitcode=$found \
    --leak-check=full --errors-for-leak-kinds=definite --show-leak-kinds=definite \
    --num-callers=40 --suppressions="$(dirname "$0")/valgrind.supp" \
    --trace-children=yes --trace-children-skip='/usr/*,/bin/*,/sbin/*' \
    "$@" || status=$?

for log in "$logs"/*; do
    if [ -s "$log" ]; then
        cat "$log" >&2
        status=$found
    fi
done
exit $status

#!/bin/sh
# A job in parts with GNU parallel, on this machine or, with --sshlogin, on several.
#
#     gnu_parallel.sh JOB.yaml DIR PARTS [OPTION OF VORN MERGE]...
#
# Called again with the same DIR, it runs only the parts that are missing.
set -eu
job=$1
dir=$2
parts=$3
shift 3

[ -e "$dir/plan.json" ] || vorn plan "$job" --parts "$parts" -o "$dir"

# One number in each line of what may be "3,17-19". GNU parallel does not tell exit code 75, which
# asks for another try, from others: each part that fails is tried twice.
vorn status "$dir" --missing | tr ',' '\n' | while IFS=- read -r first last; do
    seq "$first" "${last:-$first}"
done | parallel --will-cite --retries 2 vorn part "$dir" {}

vorn merge "$dir" "$@"

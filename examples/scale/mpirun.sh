#!/bin/sh
# A job in parts with mpirun, which only starts the parts: they send each other nothing.
#
#     mpirun.sh JOB.yaml DIR PROCESSES [OPTION OF VORN MERGE]...
#
# Rank 0 runs part 1, and so on. A rank that dies ends all others; "vorn part DIR missing" runs what
# is left then.
set -eu
job=$1
dir=$2
processes=$3
shift 3

vorn plan "$job" --parts "$processes" -o "$dir"
mpirun -n "$processes" vorn part "$dir" auto || vorn part "$dir" missing
vorn merge "$dir" "$@"

#!/bin/sh
# A job in parts with Slurm: an array of parts, and the merge when all of them have ended well.
#
#     slurm.sh JOB.yaml DIR PARTS [OPTION OF VORN MERGE]...
#
# Called again with the same DIR, it submits only the parts that are missing. "vorn submit DIR
# --engine slurm" does the same, and requeues parts that ask for another try.
set -eu
job=$1
dir=$2
parts=$3
shift 3

[ -e "$dir/plan.json" ] || vorn plan "$job" --parts "$parts" -o "$dir"
missing=$(vorn status "$dir" --missing)
after=
if [ -n "$missing" ]; then
    array=$(sbatch --parsable --array="$missing" --output="$dir/task-%a.log" \
        --wrap "exec vorn part '$dir' auto")
    after="--dependency=afterok:${array%%;*} --kill-on-invalid-dep=yes"
fi
# Word splitting is meant: two options, or none.
# shellcheck disable=SC2086
sbatch $after --output="$dir/merge.log" --wrap "exec vorn merge '$dir' $*"

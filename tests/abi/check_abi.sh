#!/bin/sh
# The binary interface of the kernel's library, as programs built earlier rely on it.
#
#     check_abi.sh check c|cxx LIBRARY HEADER...    compares it with the checked-in description
#     check_abi.sh accept c|cxx LIBRARY HEADER...   makes that description anew
#     check_abi.sh skip REASON                      for builds that the descriptions do not fit
#
# Additions pass; what makes a program fail that was built before (a function that is gone or takes
# other arguments, a record with other fields or another size) does not. Result 77: the tools are
# not installed.
set -eu

here=$(cd "$(dirname "$0")" && pwd)
action=$1
if [ "$action" = skip ]; then
    echo "check_abi: skipped: $2"
    exit 77
fi
part=$2
library=$3
shift 3

for tool in abidw abidiff; do
    command -v $tool >/dev/null || {
        echo "check_abi: $tool is not installed (package abigail-tools): skipped"
        exit 77
    }
done

case "$part" in
    c) description=$here/VORN_kernel.abi ;;
    cxx) description=$here/VORN_kernel_cxx.abi ;;
    *)
        echo "check_abi: unknown part $part" >&2
        exit 2
        ;;
esac

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/headers"
for header in "$@"; do
    cp "$header" "$work/headers"
done

# Without places in sources: they change with every line.
abidw --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed --no-parameter-names \
    --exported-interfaces-only --drop-private-types --type-id-style hash \
    --headers-dir "$work/headers" --suppressions "$here/$part.suppressions" \
    --out-file "$work/now.abi" "$library"

functions=$(grep -c '<elf-symbol .*func-type' "$work/now.abi" || true)
if [ "$functions" -lt 200 ]; then
    echo "check_abi: only $functions functions found in $library; is it stripped?" >&2
    exit 1
fi

case "$action" in
    accept)
        cp "$work/now.abi" "$description"
        echo "check_abi: $description made anew, $functions functions"
        ;;
    check)
        # Any change counts: of those that abidiff calls doubtful, a changed layout is one.
        changes=0
        abidiff --no-added-syms "$description" "$work/now.abi" >"$work/report" || changes=$?
        if [ "$changes" -ne 0 ]; then
            cat "$work/report"
            echo
            echo "check_abi: programs built earlier do not fit this library any more. If that is" \
                "meant, raise the major version and build the target accept_abi." >&2
            exit 1
        fi
        echo "check_abi: $functions functions, none changed for programs built earlier"
        ;;
    *)
        echo "check_abi: unknown action $action" >&2
        exit 2
        ;;
esac

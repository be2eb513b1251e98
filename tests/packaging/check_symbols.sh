#!/bin/sh
# Compares the list of exported names with what has them.
#
#     check_symbols.sh LIST library LIBRARY            what the library exports with C linkage
#     check_symbols.sh LIST headers HEADER...          what the C headers declare
#     check_symbols.sh LIST facade LIBRARY HEADER      what the facade's HEADER declares; LIST has the
#                                                      names as the loader knows them, in quotes
#     check_symbols.sh LIST fortran HEADER MODULE.f90  the Fortran form, which HEADER declares, with
#                                                      what the Fortran module binds
#
# LIST holds one name per line; what follows # is a comment.
set -eu

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export LC_ALL=C

list=$1
kind=$2
shift 2

# One sorted name per line. Duplicates are an error.
sorted_list() {
    sed 's/#.*//; s/[[:space:]]//g; /^$/d' "$list" | sort >"$work/list"
    if uniq -d "$work/list" | grep .; then
        echo "check_symbols: these names are listed twice in $list" >&2
        exit 1
    fi
    [ -s "$work/list" ] || {
        echo "check_symbols: $list is empty" >&2
        exit 1
    }
}

# Functions that C headers declare: comments are taken out by the preprocessor.
declared() {
    for header in "$@"; do
        "${CC:-cc}" -E -P -x c "$header"
    done | grep -oE '\b(knl_[A-Za-z0-9_]+|f2c[a-z_]+|c2f[a-z_]+|vorn_[a-z_]+)[[:space:]]*\(' |
        tr -d ' \t(' | sort -u
}

# The external names that a Fortran source binds.
bound() {
    sed 's/!.*//' "$1" | grep -oiE 'bind *\( *c *, *name *= *"[^"]*"' |
        sed 's/^[^"]*"//; s/"$//' | sort -u
}

failed=0

# Notes every name of the sorted list $1 that is not in the sorted list $2; $3 says what it is then.
expect_within() {
    comm -23 "$1" "$2" >"$work/strays"
    while read -r name; do
        echo "$name: $3" >&2
        failed=1
    done <"$work/strays"
}

# The exported names of the functions that C++ header $2 declares.
exported_of() {
    for name in $(sed 's,//.*,,' "$2" | grep -oE '^VORN_EXPORT [^(]*\(' | sed 's/($//; s/.*[ *&]//' |
        sort -u); do
        nm -D --defined-only "$1" |
            awk -v start="_Z${#name}${name}" 'index($3, start) == 1 { print $3 }'
    done | sort -u
}

if [ "$kind" = facade ]; then
    grep -o '"_Z[^"]*"' "$list" | tr -d '"' | sort >"$work/list"
    [ -s "$work/list" ] || {
        echo "check_symbols: $list is empty" >&2
        exit 1
    }
    exported_of "$1" "$2" >"$work/facade"
    expect_within "$work/list" "$work/facade" "not a function of $2"
    expect_within "$work/facade" "$work/list" "missing in $list"
    echo "$(wc -l <"$work/list") names compared"
    exit $failed
fi

sorted_list
case "$kind" in
    library)
        # C++ names begin with _Z; the tool chain's own begin with _ too.
        nm -D --defined-only "$1" | awk '{ print $3 }' | sed 's/@.*//' | grep -v '^_' |
            sort >"$work/library"
        expect_within "$work/list" "$work/library" "not exported"
        expect_within "$work/library" "$work/list" "exported, but not in the list"
        ;;
    headers)
        declared "$@" >"$work/headers"
        expect_within "$work/list" "$work/headers" "not declared in a header"
        expect_within "$work/headers" "$work/list" "declared, but not in the list"
        ;;
    fortran)
        declared "$1" >"$work/form"
        bound "$2" >"$work/bound"
        expect_within "$work/form" "$work/bound" "without an interface in the Fortran module"
        expect_within "$work/bound" "$work/list" "bound by the Fortran module, but not in the list"
        ;;
    *)
        echo "check_symbols: unknown kind $kind" >&2
        exit 2
        ;;
esac
echo "$(wc -l <"$work/list") names compared"
exit $failed

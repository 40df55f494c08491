#!/bin/sh
# Compares the dynamic symbol table of a shared library with a checked-in list.
#
# Usage: check-exports.sh <nm> <library> <expected list>
#
# The list holds the demangled names of the symbols that the library defines
# and exports, one per line, sorted bytewise (LC_ALL=C sort), duplicates
# kept: a constructor or destructor appears once per variant that the
# compiler emits (complete object, base object, deleting). Names that
# sanitizer instrumentation adds (__odr_asan.*) are not part of the list.
# Any difference in either direction fails, and the diff is printed.
set -eu

if [ $# -ne 3 ]; then
    echo "usage: $0 <nm> <library> <expected list>" >&2
    exit 2
fi
nm_tool=$1
library=$2
expected=$3

actual=$(mktemp)
trap 'rm -f "$actual"' EXIT

# nm prints "<address> <type> <name>"; the name may contain blanks.
"$nm_tool" -D --defined-only -C "$library" |
    awk '$2 ~ /^[ABDGRSTVWiu]$/ {
             name = $0
             sub(/^[^ ]* [^ ]* /, "", name)
             if (name !~ /^__odr_asan/) print name
         }' |
    LC_ALL=C sort >"$actual"

if [ ! -s "$actual" ]; then
    echo "no exported symbols read from $library" >&2
    exit 1
fi

if diff -u "$expected" "$actual"; then
    echo "$(wc -l <"$actual") exported symbols match $expected"
else
    echo "the exported symbols of $library differ from $expected" >&2
    echo "('-' listed but not exported, '+' exported but not listed)" >&2
    exit 1
fi

#!/bin/sh
# Compares the dynamic symbol table of a shared library with the names its
# version script exports.
#
# Usage: check-exports.sh <nm> <library> <version script>
#
# The version script (src/libcapi-veranti-service.map) lists the exported
# names, mangled, one per line between "global:" and "local:", and the linker
# reads the same list. The table's names lose their version suffix
# (@@NODE or @NODE); the absolute symbol that names the version node itself,
# and names that sanitizer instrumentation adds (__odr_asan.*), are not part
# of the list. Any difference in either direction fails, and the diff is
# printed with the names demangled.
set -eu

nm_tool=$1
library=$2
script=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The names between "global:" and "local:", without comments and semicolons.
sed -e 's|/\*.*\*/||' -e '/\/\*/,/\*\//d' "$script" |
    awk '/^[ \t]*global:/ { listing = 1; next }
         /^[ \t]*local:/  { listing = 0 }
         listing { sub(/;.*/, ""); gsub(/[ \t]/, ""); if ($0 != "") print }' |
    LC_ALL=C sort >"$work/expected"

# The version node's name: the word before the first "{".
node=$(sed -e 's|/\*.*\*/||' -e '/\/\*/,/\*\//d' "$script" | awk '/{/ { sub(/[ \t]*{.*/, ""); print $NF; exit }')

# nm prints "<address> <type> <name>[@@<node>]".
"$nm_tool" -D --defined-only "$library" |
    awk -v node="$node" '$2 ~ /^[ABDGRSTVWiu]$/ {
             name = $3
             sub(/@.*/, "", name)
             if ($2 == "A" && name == node) next
             if (name !~ /^__odr_asan/) print name
         }' |
    LC_ALL=C sort >"$work/actual"

if [ ! -s "$work/expected" ]; then
    echo "no exported names read from $script" >&2
    exit 1
fi
if [ ! -s "$work/actual" ]; then
    echo "no exported symbols read from $library" >&2
    exit 1
fi

if diff -u "$work/expected" "$work/actual" >"$work/diff"; then
    echo "$(wc -l <"$work/actual") exported symbols match $script"
else
    demangle=cat
    if command -v c++filt >/dev/null 2>&1; then demangle=c++filt; fi
    "$demangle" <"$work/diff"
    echo "the exported symbols of $library differ from $script" >&2
    echo "('-' listed but not exported, '+' exported but not listed)" >&2
    exit 1
fi

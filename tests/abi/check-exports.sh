#!/bin/sh
# Compares the dynamic symbol table of a shared library with the names its version script exports (mangled, one
# a line between "global:" and "local:", the list the linker reads). The table's names lose their version suffix
# (@@NODE or @NODE); the absolute symbol naming the version node and the names sanitizer instrumentation adds
# (__odr_asan.*) are not listed. Any difference in either direction fails, the diff printed demangled.
# Usage: check-exports.sh <nm> <library> <version script>
set -eu
nm_tool=$1
library=$2
script=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
uncommented() { sed -e 's|/\*.*\*/||' -e '/\/\*/,/\*\//d' "$script"; }

# The names between "global:" and "local:", without semicolons.
uncommented | awk '/^[ \t]*global:/ { listing = 1; next }
                   /^[ \t]*local:/  { listing = 0 }
                   listing { sub(/;.*/, ""); gsub(/[ \t]/, ""); if ($0 != "") print }' | LC_ALL=C sort >"$work/expected"
# The version node's name: the word before the first "{".
node=$(uncommented | awk '/{/ { sub(/[ \t]*{.*/, ""); print $NF; exit }')
# nm prints "<address> <type> <name>[@@<node>]".
"$nm_tool" -D --defined-only "$library" | awk -v node="$node" '$2 ~ /^[ABDGRSTVWiu]$/ {
    name = $3; sub(/@.*/, "", name)
    if (!($2 == "A" && name == node) && name !~ /^__odr_asan/) print name }' | LC_ALL=C sort >"$work/actual"

for list in expected actual; do
    [ -s "$work/$list" ] || { echo "no exported names read for the $list list ($script, $library)" >&2; exit 1; }
done
if diff -u "$work/expected" "$work/actual" >"$work/diff"; then
    echo "$(wc -l <"$work/actual") exported symbols match $script"
else
    if command -v c++filt >/dev/null 2>&1; then c++filt <"$work/diff"; else cat "$work/diff"; fi
    echo "the exported symbols of $library differ from $script" >&2
    echo "('-' listed but not exported, '+' exported but not listed)" >&2
    exit 1
fi

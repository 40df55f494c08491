#!/bin/sh
# Shows that check-exports.sh fails when the version script and the library disagree in either direction: a
# listed name that the library lacks, and an exported symbol that the list lacks.
# Usage: check-exports-detects-changes.sh <nm> <library> <version script>
set -eu
here=$(dirname "$0")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# One name more (right after "global:"), and the first listed name dropped.
sed '/^[ \t]*global:/a\    NotExportedByTheLibrary;' "$3" >"$work/one-more"
awk '/^[ \t]*global:/ { listing = 1 }
     listing && /^[ \t]*[A-Za-z_][A-Za-z0-9_]*;/ { listing = 0; next }
     { print }' "$3" >"$work/one-less"
for list in one-more one-less; do
    ! cmp -s "$3" "$work/$list" || { echo "could not make the list with $list name" >&2; exit 1; }
    ! sh "$here/check-exports.sh" "$1" "$2" "$work/$list" >/dev/null 2>&1 ||
        { echo "check-exports.sh accepted a version script with $list name" >&2; exit 1; }
done
echo "check-exports.sh fails on a name added to or removed from the version script"

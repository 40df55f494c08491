#!/bin/sh
# Shows that check-exports.sh fails when the list and the library disagree in
# either direction: a listed symbol that the library lacks, and an exported
# symbol that the list lacks.
#
# Usage: check-exports-detects-changes.sh <nm> <library> <expected list>
set -eu
here=$(dirname "$0")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

echo "NotExportedByTheLibrary(int)" | cat - "$3" | LC_ALL=C sort >"$work/one-more"
sed 1d "$3" >"$work/one-less"
for list in one-more one-less; do
    if sh "$here/check-exports.sh" "$1" "$2" "$work/$list" >/dev/null 2>&1; then
        echo "check-exports.sh accepted a list with $list symbol" >&2
        exit 1
    fi
done
echo "check-exports.sh fails on a symbol added to or removed from the list"

#!/usr/bin/env bash
# Outside texts may reach the log only as arguments of a format. The compiler (-Wformat=2) refuses a non-literal
# format to every format-checked function, and the log macros paste theirs into a literal. This checks that
# -Wformat=2 is on for the whole build and that every variadic function of ours taking a format is format-checked.
# Usage: check-log-formats.sh <source root>
set -euo pipefail
cd "${1:-$(dirname "$0")/../..}"
grep -Eq '^add_compile_options\(.*-Wformat=2' CMakeLists.txt || { echo "FAIL: -Wformat=2 is not on"; exit 1; }
unchecked=$(perl -0777 -ne '
  while (/(\w+)\s*\([^();{}]*\bchar\s*\*\s*\w+\s*,\s*\.\.\.\s*\)\s*([^;{]*)/g) {
    my ($name, $after) = ($1, $2);
    $seen{$name} = 1;
    $checked{$name} = 1 if $after =~ /format\s*\(\s*(?:__)?printf|G_GNUC_PRINTF/;
  }
  END { print join(" ", grep { !$checked{$_} } sort keys %seen) }' $(find src platform tools include -name '*.[ch]*'))
[ -z "$unchecked" ] || { echo "FAIL: variadic functions taking a format, not format-checked: $unchecked"; exit 1; }
echo "every log format is checked by the compiler"

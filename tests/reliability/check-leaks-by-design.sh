#!/usr/bin/env bash
# Shows that lsan.supp hides exactly the required leak: without it, every block the probe (built with ASan) leaks
# is allocated under CVerantiAPI::GetDisclaimerDetails, the direct ones being the item records; with it, none.
# Usage: check-leaks-by-design.sh <leaks_by_design_probe> <lsan.supp>
set -uo pipefail
fail() { echo "FAIL: $1"; [ -z "${2-}" ] || echo "$2"; exit 1; }
# The slow unwinder follows the stacks through the JSON library, which has no frame pointers. One line a block.
blocks=$(ASAN_OPTIONS=fast_unwind_on_malloc=0 LSAN_OPTIONS= "$1" 2>&1 |
  awk '/^(Direct|Indirect) leak of/ { if (b) print b; b = $0; next }
       /^$/ { if (b) print b; b = ""; next } b { b = b " | " $0 } END { if (b) print b }')
grep -q 'leak of' <<<"$blocks" || fail "no leak without suppressions (is the probe built with AddressSanitizer?)"
stray=$(grep -v 'CVerantiAPI::GetDisclaimerDetails' <<<"$blocks"; grep '^Direct' <<<"$blocks" |
  grep -v 'make_unique<STHomeDisclaimerContentItem>')
[ -z "$stray" ] || fail "leaks other than the item records and what they hold:" "$stray"
echo "without suppressions: $(grep -c 'leak of' <<<"$blocks") leaks, all of the item records and what they hold"
report=$(LSAN_OPTIONS="suppressions=$2" "$1" 2>&1) || fail "the probe still fails with $2:" "$report"
echo "with $(basename "$2"): no leak reported"

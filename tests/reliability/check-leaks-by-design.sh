#!/usr/bin/env bash
# Shows that the required leak is suppressed exactly: runs the probe (built
# with AddressSanitizer) without suppressions and checks that every leaked
# block was allocated under CVerantiAPI::GetDisclaimerDetails (the records and
# what they hold), then with tests/lsan.supp and checks that nothing is left.
# Usage: check-leaks-by-design.sh <leaks_by_design_probe> <lsan.supp>
set -uo pipefail
probe=$1
supp=$2

# The slow unwinder follows the stacks through the JSON library, which has no frame pointers.
report=$(ASAN_OPTIONS="fast_unwind_on_malloc=0" LSAN_OPTIONS="" "$probe" 2>&1)
blocks=$(printf '%s\n' "$report" | awk '
  /^(Direct|Indirect) leak of/ { if (block != "") print block; block = $0; next }
  /^$/ { if (block != "") print block; block = ""; next }
  block != "" { block = block " | " $0 }
  END { if (block != "") print block }')
total=$(printf '%s\n' "$blocks" | grep -c 'leak of' || true)
if [ "$total" -eq 0 ]; then
  echo "FAIL: the probe leaked nothing without suppressions (is it built with AddressSanitizer?)"
  exit 1
fi
stray=$(printf '%s\n' "$blocks" | grep 'leak of' | grep -v 'CVerantiAPI::GetDisclaimerDetails' || true)
if [ -n "$stray" ]; then
  echo "FAIL: leaks that the library does not make by design:"
  printf '%s\n' "$stray"
  exit 1
fi
records=$(printf '%s\n' "$blocks" | grep '^Direct leak' | grep -c 'make_unique<STHomeDisclaimerContentItem>' || true)
direct=$(printf '%s\n' "$blocks" | grep -c '^Direct leak' || true)
if [ "$direct" -ne "$records" ]; then
  echo "FAIL: direct leaks other than the item records:"
  printf '%s\n' "$blocks" | grep '^Direct leak' | grep -v 'make_unique<STHomeDisclaimerContentItem>'
  exit 1
fi
echo "without suppressions: $total leak reports, all under CVerantiAPI::GetDisclaimerDetails; the direct ones are the item records"
echo "  (the others are what the records hold)"

if ! suppressed=$(LSAN_OPTIONS="suppressions=$supp" "$probe" 2>&1); then
  echo "FAIL: with $supp the probe still fails:"
  printf '%s\n' "$suppressed" | grep -A8 'leak of'
  exit 1
fi
echo "with $(basename "$supp"): no leak reported"

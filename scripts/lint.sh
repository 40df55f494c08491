#!/usr/bin/env bash
# Format and lint check; scripts/test.sh runs it first, so the test command
# fails on either:
#   - every C and C++ file of the tree (tracked, or new and not ignored) must
#     be formatted as .clang-format says (clang-format --dry-run --Werror);
#   - the sources of src/, consent/, platform/ and tools/ must be clean under
#     .clang-tidy (every check a warning-as-error), read with the compile
#     commands of a configured build (nothing is built).
#
#   scripts/lint.sh [build-dir]     (default build/lint)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/lint}

fail() {
    printf 'lint: %s\n' "$*" >&2
    exit 1
}

# Paths of the tree's files that match the patterns and exist.
tree_files() {
    git ls-files --cached --others --exclude-standard -- "$@" | while read -r path; do
        if [ -f "$path" ]; then printf '%s\n' "$path"; fi
    done
}

mapfile -t formatted < <(tree_files '*.c' '*.cc' '*.cpp' '*.h' '*.hpp')
[ ${#formatted[@]} -gt 0 ] || fail "no C or C++ files found (is this a git checkout?)"
echo "== clang-format: ${#formatted[@]} files =="
if ! clang-format --dry-run --Werror "${formatted[@]}"; then
    fail "files differ from .clang-format; run: clang-format -i <file>"
fi

mapfile -t linted < <(tree_files 'src/*.c' 'src/*.cpp' 'consent/*.c' 'consent/*.cpp' 'platform/*.c' 'platform/*.cpp' 'tools/*.c' 'tools/*.cpp')
echo "== clang-tidy: ${#linted[@]} files of src/, consent/, platform/ and tools/ =="
cmake -S . -B "$build" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON >/dev/null
report="$build/clang-tidy.log"
if ! printf '%s\n' "${linted[@]}" | xargs -P"$(nproc)" -n4 clang-tidy -p "$build" --quiet >"$report" 2>&1; then
    grep -v '^[0-9]* warnings\? generated\.$' "$report" >&2 || true
    fail "clang-tidy findings (above; the whole report is $report)"
fi
echo "lint: formatting and clang-tidy clean"

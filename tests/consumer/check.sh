#!/usr/bin/env bash
# Installs a build into a temporary prefix and builds two small consumers against it (tests/consumer/run.sh).
# Usage: tests/consumer/check.sh <build-dir>
set -euo pipefail
build=$(realpath "$1")
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
"$here/run.sh" "$work/prefix" "$work"

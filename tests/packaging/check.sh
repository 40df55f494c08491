#!/usr/bin/env bash
# Builds the Debian packages of a build tree (configured with the prefix /usr first, as packages install) with
# cpack, unpacks them into a fresh root and runs what users run from there: the C (pkg-config) and C++ (CMake
# package) consumers, each tool's --version, the manual pages and completion, and a C# program whose
# [DllImport("capi-veranti-service")] finds the runtime package's library alone (no development link) through
# the installed Mono mapping.
# Usage: tests/packaging/check.sh <build-dir>
set -euo pipefail
build=$(realpath "$1")
here=$(cd "$(dirname "$0")" && pwd)
consumer=$here/../consumer
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake -DCMAKE_INSTALL_PREFIX=/usr "$build" >/dev/null
cmake --build "$build" -j"$(nproc)" >/dev/null
(cd "$work" && cpack --config "$build/CPackConfig.cmake" -G DEB >/dev/null)
packages=("$work"/*.deb)
for package in "${packages[@]}"; do
  echo "  $(basename "$package"): $(dpkg-deb -f "$package" Depends)"
  dpkg-deb --contents "$package" >"$work/contents"
  grep -q '/usr/share/doc/.*/copyright$' "$work/contents"
done

# Each package into its own root, and all of them together into one.
unpack() {
  local root=$1; shift
  mkdir -p "$root"
  for name in "$@"; do dpkg -x "$work/${name}"_*.deb "$root"; done
}
unpack "$work/root" libcapi-veranti-service0 libcapi-veranti-service-dev capi-veranti-service-tools veranti-host-platform
unpack "$work/runtime" libcapi-veranti-service0 veranti-host-platform

# The simulator's unit keeps its sandbox: exposure 1.0 or less (it was 9.6 as root without one).
unit=$work/root/usr/lib/systemd/system/terms-service-sim.service
! command -v systemd-analyze >/dev/null ||
  systemd-analyze security --offline=true --threshold=10 --no-pager "$unit" | tail -n 1

"$consumer/run.sh" "$work/root/usr" "$work"
libdir_in() { dirname "$(find "$1/usr/lib" -name 'libcapi-veranti-service.so.0' | head -n 1)"; }
export LD_LIBRARY_PATH=$(libdir_in "$work/root") DLOG_OUTPUT=none
# Each tool's manual page (made from its --help) and version, and terms-cli's completion.
for tool in terms-cli terms-service-sim vconftool; do
  test -s "$work/root/usr/share/man/man1/$tool.1.gz"
  "$work/root/usr/bin/$tool" --version
done
test -s "$work/root/usr/share/bash-completion/completions/terms-cli"
zcat "$work/root/usr/share/man/man1/terms-cli.1.gz" | grep -q -- '--timeout'

# C#: only the runtime package's files, and its mapping as the program's config.
runtime_libdir=$(libdir_in "$work/runtime")
! find "$work/runtime" -name 'libcapi-veranti-service.so' | grep -q . ||
  { echo "the runtime package must not carry the development link" >&2; exit 1; }
bridge=$(find "$build/tests/csharp" -name BridgeTest.exe | head -n 1)
if [ -n "$bridge" ] && command -v mono >/dev/null; then
  cp "$bridge" "$work/BridgeTest.exe"
  cp "$runtime_libdir/capi-veranti-service.dll.config" "$work/BridgeTest.exe.config"
  LD_LIBRARY_PATH=$runtime_libdir mono "$work/BridgeTest.exe" instance | grep -qx 'True True True'
  echo "  C#: [DllImport(\"capi-veranti-service\")] loads the runtime package's library"
fi
echo "packages install and run from a fresh root"

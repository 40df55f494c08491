#!/usr/bin/env bash
# Installs the Debian packages that building, testing and the demo need.
# Runs apt-get only when something is missing.
set -euo pipefail

PACKAGES=(
  cmake g++ make pkg-config
  libglib2.0-dev libjsoncpp-dev libsystemd-dev
  libgtest-dev
  libbenchmark-dev python3
  dbus
  libglib2.0-bin systemd python3-dbus python3-gi
  mono-mcs mono-runtime
  help2man
  clang libclang-rt-14-dev llvm clang-format clang-tidy
  gcovr
)

missing=()
for package in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "Installing: ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
$SUDO apt-get update -q
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"

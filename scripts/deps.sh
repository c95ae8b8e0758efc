#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the tools need, if any
# is missing. Runs apt-get as root, or through sudo.
set -euo pipefail

PACKAGES=(
  build-essential cmake pkg-config python3
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  libicu-dev libxml2-dev libxml2-utils libpcre2-dev libre2-dev libglib2.0-dev
  clang libclang-rt-14-dev
  unicode-data locales perl icu-devtools
  libfribidi-dev
)

missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update
$SUDO apt-get install -y --no-install-recommends "${missing[@]}"

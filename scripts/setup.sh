#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the benchmark need, if any are missing.
# Idempotent: with everything present it installs nothing.
set -euo pipefail

packages=(
  cmake ninja-build g++ clang libclang-rt-14-dev binutils
  libgtest-dev
  zlib1g-dev liblz4-dev libdeflate-dev libzfp-dev libbz2-dev liblzo2-dev
  gzip bzip2 lz4 lzop pkg-config bc
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -eq 0 ]; then
  sudo=()
elif command -v sudo >/dev/null 2>&1 && sudo -n true 2>/dev/null; then
  sudo=(sudo -n)
else
  echo "zemdc: missing packages; install them with:" >&2
  echo "  sudo apt-get install -y ${missing[*]}" >&2
  exit 1
fi
echo "zemdc: installing ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null

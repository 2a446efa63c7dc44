#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the demo need; with
# the argument "interop", also the heavy real peers of `make interop` (JAX-WS
# on a JDK). Idempotent and quiet when everything is present already.
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config make
  libgtest-dev libgmock-dev
  libxerces-c-dev
  libssl-dev openssl
  python3 python3-spyne nginx-light
  clang libclang-rt-14-dev
  doxygen
)
if [ "${1:-}" = interop ]; then
  packages+=(default-jdk-headless libjaxws-java)
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null

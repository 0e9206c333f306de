#!/usr/bin/env bash
# Sets up a Debian 12 machine for the VELMO VPN Console and then runs a make
# target (run, test, bench, ...). Installs only the packages that are missing,
# so running it again is cheap and changes nothing.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(
  make g++ cmake ninja-build pkg-config
  libx11-dev libssl-dev
  googletest libgtest-dev libbenchmark-dev
  clang libclang-rt-14-dev
  xvfb xauth x11-utils procps
  libxtst-dev xclip trayer
  fonts-dejavu-core xfonts-utils x11-xserver-utils
  desktop-file-utils openbox
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "bootstrap: installing ${missing[*]}"
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

exec make "${1:-run}"

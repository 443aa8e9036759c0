#!/usr/bin/env bash
# Installs the Debian packages the build needs, when run as root and any is missing.
# libnetconf2-dev's header needs libssh-dev, which its package does not pull in; libyuma-base
# ships the IETF NETCONF modules the server loads; python3-ncclient drives the server's tests.
# clang and its runtime build the libFuzzer targets CI runs.
set -euo pipefail
PKGS=(build-essential cmake pkg-config libsafec-dev libyang2-dev libyang2-tools liblmdb-dev
      libgtest-dev libgmock-dev libbenchmark-dev
      libnetconf2-dev libssh-dev libyuma-base python3-ncclient openssl clang libclang-rt-14-dev)
missing=()
for p in "${PKGS[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  if [ "$(id -u)" -ne 0 ]; then
    echo "missing Debian packages: ${missing[*]} (run as root, or install them)" >&2
    exit 1
  fi
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq "${missing[@]}"
fi

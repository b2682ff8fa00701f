#!/usr/bin/env bash
# Installs what building, the demo and the tests need on a fresh Debian 12 machine: the apt
# packages listed in scripts/apt-packages.txt and the npm packages of package.json.
set -euo pipefail
cd "$(dirname "$0")/.."

missing=()
while read -r pkg; do
  [ -z "$pkg" ] && continue
  case "$pkg" in \#*) continue ;; esac
  # Node and npm may come from elsewhere than Debian (a newer Node is often preinstalled);
  # only ask apt for them when the commands are missing.
  if [ "$pkg" = nodejs ] && command -v node >/dev/null; then continue; fi
  if [ "$pkg" = npm ] && command -v npm >/dev/null; then continue; fi
  dpkg -s "$pkg" >/dev/null 2>&1 || missing+=("$pkg")
done < scripts/apt-packages.txt

if [ ${#missing[@]} -gt 0 ]; then
  echo "== installing apt packages: ${missing[*]}"
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO=sudo
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

if [ ! -d node_modules/llrpjs ] || [ package-lock.json -nt node_modules/.package-lock.json ]; then
  echo "== installing npm packages (llrpjs, the independent LLRP peer)"
  npm ci --no-audit --no-fund --loglevel=error
fi

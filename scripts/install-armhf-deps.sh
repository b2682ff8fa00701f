#!/usr/bin/env bash
# Installs what the armhf (appliance) build and its tests under qemu need on a Debian 12 amd64
# machine, on top of scripts/install-deps.sh:
#   - the cross compiler g++-arm-linux-gnueabihf (its own libc and libstdc++ under
#     /usr/arm-linux-gnueabihf), qemu-user for qemu-arm, lintian for the Debian packages;
#   - Debian's armhf libcurl, libmosquitto and GoogleTest with everything they link against, fetched with
#     `apt-get download` from the same Debian archive and unpacked into build-armhf-sysroot/
#     (the armhf toolchain file and qemu-arm take them from there).
# The armhf libraries are not installed as :armhf multiarch packages: dpkg lets a Multi-Arch
# library be installed for two architectures only at the very same version, so the host's own
# security updates (libssl3, libcurl4, ...) block the armhf copies whenever the armhf index lags
# behind. Nor is armhf added to the host's dpkg architectures: then every plain `apt-get update`
# on the machine fetches the armhf indexes too and fails with them when a mirror is mid-sync.
# apt reads the armhf indexes into a private state folder, build-armhf-apt/, instead.
# Safe to run again: it installs and unpacks only what is missing or changed.
set -euo pipefail
cd "$(dirname "$0")/.."

sysroot=${TESSERA_ARMHF_SYSROOT:-$PWD/build-armhf-sysroot}
state=$PWD/build-armhf-apt
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO=sudo

# The top of what the armhf build links; their dependencies follow from apt.
armhf_roots=(libcurl4-openssl-dev libmosquitto-dev libgtest-dev libgmock-dev libstdc++6)
host_packages=(g++-arm-linux-gnueabihf qemu-user lintian)

missing=()
for pkg in "${host_packages[@]}"; do
  dpkg -s "$pkg" >/dev/null 2>&1 || missing+=("$pkg")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "== installing the cross toolchain and tools: ${missing[*]}"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# An apt whose only architecture is armhf, with the machine's sources but its own package lists,
# cache and (empty) installed-package status.
mkdir -p "$state/lists/partial" "$state/cache/archives/partial"
touch "$state/status"
# apt downloads as the unprivileged _apt user when that user can write the folders.
[ "$(id -u)" -eq 0 ] && id _apt >/dev/null 2>&1 && chown _apt "$state/lists/partial" "$state/cache/archives/partial"
apt_armhf=(-o APT::Architecture=armhf -o APT::Architectures=armhf
  -o Dir::State::Lists="$state/lists" -o Dir::Cache="$state/cache" -o Dir::State::status="$state/status")
armhf_update() {
  echo "== reading the armhf package indexes into $state"
  # An index that fails to download (a mirror in the middle of a sync) leaves apt with the
  # others; what is missing shows in the steps after.
  apt-get "${apt_armhf[@]}" update -qq || echo "== apt-get update reported errors; going on with the indexes it has"
}

# Every armhf package the roots need, at the version apt would install, one "name=version" a line.
resolve() {
  local names
  names=$(apt-cache "${apt_armhf[@]}" depends --recurse --no-recommends --no-suggests --no-conflicts \
      --no-breaks --no-replaces --no-enhances "${armhf_roots[@]}" 2>/dev/null |
    sed -n 's/^\([a-z0-9][a-z0-9.+-]*\)$/\1/p' | sort -u)
  [ -z "$names" ] && return 0
  # shellcheck disable=SC2086
  apt-cache "${apt_armhf[@]}" policy $names | awk '/^[^ ].*:$/ { name = substr($1, 1, length($1) - 1) }
    /^  Candidate: / && $2 != "(none)" { print name "=" $2 }'
}

wanted=$(resolve)
if [ -z "$wanted" ]; then
  armhf_update
  wanted=$(resolve)
fi
for root in libcurl4-openssl-dev libmosquitto-dev; do
  if ! grep -q "^$root=" <<<"$wanted"; then
    echo "no armhf $root in the apt indexes of $state" >&2
    exit 1
  fi
done

if [ -f "$sysroot/.packages" ] && [ "$(cat "$sysroot/.packages")" = "$wanted" ]; then
  exit 0
fi

echo "== unpacking the armhf libraries into $sysroot"
downloads=$(mktemp -d)
trap 'rm -rf "$downloads"' EXIT
# apt fetches as the unprivileged _apt user when it can write the folder.
[ "$(id -u)" -eq 0 ] && id _apt >/dev/null 2>&1 && chown _apt "$downloads"
# shellcheck disable=SC2086
(cd "$downloads" && apt-get "${apt_armhf[@]}" download -qq $wanted)
rm -rf "$sysroot"
mkdir -p "$sysroot"
for deb in "$downloads"/*.deb; do
  dpkg-deb -x "$deb" "$sysroot"
done
# Packages link some files by absolute path (/lib/ld-linux-armhf.so.3 -> /lib/arm-linux-gnueabihf/...);
# inside the sysroot these must point into the sysroot, for the linker and for qemu-arm -L alike.
find "$sysroot" -type l -lname '/*' | while read -r link; do
  ln -sfn "$sysroot$(readlink "$link")" "$link"
done
echo "$wanted" >"$sysroot/.packages"
echo "== $(wc -l <<<"$wanted") armhf packages unpacked"

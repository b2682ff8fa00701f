#!/usr/bin/env bash
# Builds the Debian packages of the appliance and of the simulator, for amd64 and armhf:
#   build-deb/tessera_<version>_<arch>.deb            /usr/bin/tessera, its systemd unit, man page
#   build-deb/tessera-readersim_<version>_<arch>.deb  /usr/bin/tessera-readersim, for bench tests
# and checks them with lintian. <version> is the project VERSION of CMakeLists.txt, which must
# be the top entry of packaging/changelog. The packages are native (their sources are their own
# upstream), so the version has no Debian revision and the changelog is changelog.gz.
#   bash scripts/build-deb.sh              both architectures
#   bash scripts/build-deb.sh armhf        one
#   TESSERA_DEB_OUT=DIR                    where the .deb files go (default build-deb/)
# The amd64 binaries are built in build-deb-amd64/, the armhf ones in build-armhf/ (shared with
# scripts/test-armhf.sh, so that the tests run what the package ships); both Release with
# Debian's hardening flags (cmake/hardening.cmake), stripped as dh_strip strips.
set -euo pipefail
cd "$(dirname "$0")/.."
umask 022

archs=${*:-amd64 armhf}
out=${TESSERA_DEB_OUT:-$PWD/build-deb}
die() { echo "build-deb: $*" >&2; exit 1; }

version=$(sed -n 's/^project(tessera VERSION \([0-9][0-9.]*\).*/\1/p' CMakeLists.txt)
[ -n "$version" ] || die "no project VERSION in CMakeLists.txt"
top=$(sed -n '1s/^tessera (\([^)]*\)).*/\1/p' packaging/changelog)
[ "$top" = "$version" ] || die "packaging/changelog starts with $top, CMakeLists.txt says $version: add a changelog entry"
maintainer=$(sed -n '0,/^ -- /s/^ -- \(.*>\)  .*/\1/p' packaging/changelog)
# Files in the packages carry the date of the changelog entry, so that a rebuild of the same
# sources gives the same packages.
SOURCE_DATE_EPOCH=$(date -d "$(sed -n '0,/^ -- /s/^ -- .*>  //p' packaging/changelog)" +%s)
export SOURCE_DATE_EPOCH

# What the binaries link, checked against dpkg-shlibdeps below on amd64. The minimum versions
# are those of the oldest symbol versions they use on either architecture (armhf's libgcc_s
# starts at GCC_3.5).
depends_tessera="libc6 (>= 2.34), libcurl4 (>= 7.16.2), libgcc-s1 (>= 3.5), libmosquitto1 (>= 1.6), libstdc++6 (>= 12)"
depends_readersim="libc6 (>= 2.34), libgcc-s1 (>= 3.5), libstdc++6 (>= 12)"

launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
  export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=1
fi

build() {  # arch -> sets bindir, strip_tool, run_prefix
  local arch=$1 dir
  case $arch in
    amd64)
      dir=build-deb-amd64
      cmake -S . -B "$dir" -G Ninja "${launcher[@]}" -DCMAKE_BUILD_TYPE=Release \
        -DTESSERA_TESTS=OFF -DTESSERA_BENCH=OFF -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/hardening.cmake" >/dev/null
      strip_tool=strip
      run_prefix=()
      ;;
    armhf)
      bash scripts/install-armhf-deps.sh
      dir=build-armhf
      cmake -S . -B "$dir" -G Ninja "${launcher[@]}" -DCMAKE_BUILD_TYPE=Release \
        -DTESSERA_BENCH=OFF -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/armhf-toolchain.cmake" >/dev/null
      strip_tool=arm-linux-gnueabihf-strip
      run_prefix=(qemu-arm -L "${TESSERA_ARMHF_SYSROOT:-$PWD/build-armhf-sysroot}")
      ;;
    *) die "unknown architecture '$arch' (amd64 or armhf)" ;;
  esac
  echo "== [deb $arch] build tessera and tessera-readersim in $dir"
  ninja -C "$dir" tessera tessera-readersim
  bindir=$PWD/$dir/bin
}

# A Depends list must ask for at least what dpkg-shlibdeps finds the binary needs.
check_depends() {  # binary depends
  local need have pkg min ours
  command -v dpkg-shlibdeps >/dev/null || return 0
  local tmp
  tmp=$(mktemp -d)
  mkdir "$tmp/debian"
  printf 'Source: tessera\n\nPackage: tessera\nArchitecture: any\n' >"$tmp/debian/control"
  need=$(cd "$tmp" && dpkg-shlibdeps -O -e"$1" 2>/dev/null | sed -n 's/^shlibs:Depends=//p')
  rm -rf "$tmp"
  IFS=',' read -ra items <<<"$need"
  for item in "${items[@]}"; do
    pkg=$(sed 's/^ *\([^ ]*\).*/\1/' <<<"$item")
    min=$(sed -n 's/.*(>= \(.*\)).*/\1/p' <<<"$item")
    ours=$(tr ',' '\n' <<<"$2" | sed -n "s/^ *$pkg (>= \(.*\))$/\1/p")
    [ -n "$ours" ] || die "$(basename "$1") needs $item, which the Depends list lacks"
    [ -z "$min" ] || dpkg --compare-versions "$ours" ge "$min" ||
      die "$(basename "$1") needs $item, the Depends list asks only for $pkg (>= $ours)"
  done
}

# The man page of the simulator is its --help text, so that it cannot drift from the options.
readersim_man() {  # binary -> troff on stdout
  local help
  help=$("${run_prefix[@]}" "$1" --help | sed -e 's/\\/\\e/g' -e "s/^\\([.']\\)/\\\\\\&\\1/")
  awk -v help="$help" '$0 == "@HELP@" { print help; next } { print }' packaging/tessera-readersim.1.in
}

stage() {  # package arch binary depends section synopsis description-file
  local pkg=$1 arch=$2 binary=$3 depends=$4 section=$5 synopsis=$6 description=$7
  local root=$out/stage/$pkg-$arch name
  name=$(basename "$binary")
  rm -rf "$root"
  mkdir -p "$root/DEBIAN" "$root/usr/bin" "$root/usr/share/doc/$pkg" "$root/usr/share/man/man1"
  install -m 0755 "$binary" "$root/usr/bin/$name"
  "$strip_tool" --remove-section=.comment --remove-section=.note "$root/usr/bin/$name"
  install -m 0644 packaging/copyright "$root/usr/share/doc/$pkg/copyright"
  gzip -9n <packaging/changelog >"$root/usr/share/doc/$pkg/changelog.gz"
  if [ "$pkg" = tessera ]; then
    gzip -9n <packaging/tessera.1 >"$root/usr/share/man/man1/tessera.1.gz"
    install -D -m 0644 packaging/tessera.service "$root/lib/systemd/system/tessera.service"
    install -D -m 0644 packaging/tessera.default "$root/etc/default/tessera"
    echo /etc/default/tessera >"$root/DEBIAN/conffiles"
    chmod 0644 "$root/DEBIAN/conffiles"
    install -d "$root/var/lib/tessera/spool"
    install -m 0755 packaging/postinst packaging/prerm packaging/postrm "$root/DEBIAN/"
    install -D -m 0644 packaging/tessera.lintian-overrides "$root/usr/share/lintian/overrides/tessera"
  else
    readersim_man "$binary" | gzip -9n >"$root/usr/share/man/man1/$name.1.gz"
  fi
  chmod 0644 "$root"/usr/share/man/man1/*.gz "$root/usr/share/doc/$pkg/changelog.gz"
  find "$root" -type d -exec chmod 0755 {} +
  (cd "$root" && find . -type f ! -path './DEBIAN/*' -printf '%P\0' | sort -z | xargs -0 md5sum) \
    >"$root/DEBIAN/md5sums"
  chmod 0644 "$root/DEBIAN/md5sums"
  {
    echo "Package: $pkg"
    echo "Version: $version"
    echo "Architecture: $arch"
    echo "Maintainer: $maintainer"
    echo "Installed-Size: $(du -sk --exclude=DEBIAN "$root" | cut -f1)"
    echo "Depends: $depends"
    echo "Section: $section"
    echo "Priority: optional"
    echo "Description: $synopsis"
    cat "$description"
  } >"$root/DEBIAN/control"
  chmod 0644 "$root/DEBIAN/control"
  dpkg-deb --root-owner-group -Zxz --build "$root" "$out/${pkg}_${version}_${arch}.deb" >/dev/null
  echo "   $out/${pkg}_${version}_${arch}.deb ($(stat -c %s "$out/${pkg}_${version}_${arch}.deb") bytes; $name $(stat -c %s "$root/usr/bin/$name") bytes stripped)"
}

mkdir -p "$out"
descriptions=$(mktemp -d)
trap 'rm -rf "$descriptions"' EXIT
cat >"$descriptions/tessera" <<'EOF'
 Tessera runs on a fixed UHF RFID reader appliance. It drives the reader's
 radio service over LLRP, runs inventories and pushes every tag read out as
 text (serial CSV with a CRC-16, key=value lines or JSON objects) through
 HTTP(S) POST, a USB HID keyboard, a TCP/IP server, hourly CSV files on a USB
 drive or the serial port.
 .
 The appliance's management software controls it over a command channel on
 127.0.0.1:50017. It reads /readerconfig/AdvReaderConfig.xml and
 /readerconfig/cloud.conf. tessera.service starts it at boot; it logs to the
 journal as "tessera".
EOF
cat >"$descriptions/tessera-readersim" <<'EOF'
 tessera-readersim is an LLRP 1.0.1 fixed reader simulator with a seeded tag
 population, real ROSpec triggers, pre-filters, GPI events and a text control
 port, for running and testing tessera without a reader.
 .
 It listens on port 5084 by default, the port of a reader's own radio
 service: on a reader appliance give it another port.
EOF

for arch in $archs; do
  build "$arch"
  [ "$arch" = amd64 ] && check_depends "$bindir/tessera" "$depends_tessera" &&
    check_depends "$bindir/tessera-readersim" "$depends_readersim"
  echo "== [deb $arch] package $version"
  stage tessera "$arch" "$bindir/tessera" "$depends_tessera" net \
    "tag relay service of a UHF RFID reader appliance" "$descriptions/tessera"
  stage tessera-readersim "$arch" "$bindir/tessera-readersim" "$depends_readersim" misc \
    "LLRP reader simulator for bench tests of tessera" "$descriptions/tessera-readersim"
done

if command -v lintian >/dev/null; then
  echo "== lintian"
  debs=()
  for arch in $archs; do debs+=("$out"/tessera{,-readersim}_"${version}_$arch".deb); done
  lintian --info --display-info --fail-on error,warning "${debs[@]}"
  echo "lintian: no error or warning"
else
  echo "== lintian is not installed (scripts/install-armhf-deps.sh installs it): packages not checked"
fi

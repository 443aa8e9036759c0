#!/usr/bin/env bash
# Builds ocni for installation, installs it into a staging directory, builds the Debian package
# and, as root, installs that package, runs the installed ocni-map on an example, builds a
# project against the installed CMake package and pkg-config file, and removes the package.
#   bash scripts/package.sh        # the package lands in build-pkg/ocni_*.deb
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
BUILD=${OCNI_PKG_BUILD:-build-pkg}
STAGE=$(mktemp -d "${TMPDIR:-/tmp}/ocni-stage.XXXXXX")
WORK=$(mktemp -d "${TMPDIR:-/tmp}/ocni-pkg.XXXXXX")
trap 'rm -rf "$STAGE" "$WORK"' EXIT
cmake -S . -B "$BUILD" -DCMAKE_BUILD_TYPE=Release -DOCNI_PACKAGE=ON -DCMAKE_INSTALL_PREFIX=/usr \
  -DOCNI_BUILD_TESTS=OFF -DOCNI_BUILD_BENCH=OFF >/dev/null
cmake --build "$BUILD" -j"$(nproc)" >/dev/null
DESTDIR="$STAGE" cmake --install "$BUILD" >/dev/null
for f in usr/bin/ocni-map usr/bin/ocni-netconfd usr/include/ocni/yfw_types.h usr/share/ocni/yang \
         usr/share/doc/ocni/examples/01-ipv4-default-next-hop-address.json; do
  [ -e "$STAGE/$f" ] || { echo "package: $f not installed" >&2; exit 1; }
done
ls "$STAGE"/usr/lib/*/pkgconfig/ocni.pc "$STAGE"/usr/lib/*/cmake/ocni/ocniConfig.cmake >/dev/null
(cd "$BUILD" && cpack -G DEB >/dev/null)
deb=$(ls "$BUILD"/ocni_*.deb)
echo "package: built $deb"
if [ "$(id -u)" -ne 0 ]; then
  echo "package: not root, so the package is not installed and run" >&2
  exit 0
fi
apt-get install -y -qq "./$deb" >/dev/null
trap 'apt-get remove -y -qq ocni >/dev/null 2>&1 || true; rm -rf "$STAGE" "$WORK"' EXIT
# The installed tool finds its plug-in and modules by itself, from any directory.
cd "$WORK"
ocni-map --store s edit /usr/share/doc/ocni/examples/01-ipv4-default-next-hop-address.json
ocni-map --store s get --prefix 10.1.0.0/16 >got.json
grep -q '"next-hop": "192.0.2.1"' got.json || { echo "package: the installed ocni-map lost the route" >&2; exit 1; }
"$STAGE/usr/bin/ocni-map" --store s vrf list >/dev/null
cd - >/dev/null
cmake -S tests/install -B "$WORK/consumer" >/dev/null
cmake --build "$WORK/consumer" >/dev/null
"$WORK/consumer/consumer"
cc tests/install/consumer.c -o "$WORK/pc-consumer" $(pkg-config --cflags --libs ocni) \
  -DOCNI_PLUGIN="\"$(pkg-config --variable=plugin ocni)\"" -DOCNI_YANG_DIR="\"$(pkg-config --variable=yangdir ocni)\""
"$WORK/pc-consumer"
echo "package: installed, ran and removed"

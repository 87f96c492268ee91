#!/usr/bin/env bash
# Makes the Debian package, lets lintian look at it, installs it on this machine, has pkcs11-tool find a simulated card
# through p11-kit, and removes the package again. Needs root.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh build demo clients package
. scripts/lib.sh
. scripts/tool.sh

[ "$(id -u)" -eq 0 ] || fail "installing a package needs root"
! dpkg-query -W -f '${db:Status-Status}' quarvel 2>/dev/null | grep -qx installed || fail "the package is installed already"

build_desktop
(cd build/desktop && rm -f ./*.deb && cpack -G DEB >"$WORK/cpack.log") || { cat "$WORK/cpack.log" && fail "cpack"; }
package=$(echo build/desktop/quarvel_*.deb)
echo "Made $package ($(stat -c %s "$package") bytes)"
lintian --allow-root --fail-on error "$package"

# What runs at the end whatever happens: the machine is left as it was.
remove_package() {
    dpkg --purge quarvel >/dev/null 2>&1 || true
}
trap 'remove_package; clean_up' EXIT
dpkg -i "$package" >/dev/null
module=$(pkg-config --variable=p11_module quarvel)
echo "Installed $module"

start_pcsc virtual
start_card piv
slot=
find_slot
p11-kit list-modules | sed -n '/^quarvel/,/^[^ ]/p' | grep -q 'token: PIV Profile' || fail "p11-kit does not show the card"
MODULE=$(pkg-config --variable=proxy_module p11-kit-1)
slot=
tool --list-token-slots | grep -A1 -F "$READER" | grep -q 'PIV Profile' || fail "pkcs11-tool does not find the card"
echo "pkcs11-tool finds the card through $MODULE"

remove_card
dpkg --purge quarvel >/dev/null
[ ! -e "$module" ] || fail "$module is still there"
echo "Removed the package"

#!/usr/bin/env bash
# Does what the pages for installing and packaging show: installs into a folder, makes the Debian package, runs the tests on
# the optimised build. Then lets lintian look at the package, installs it on this machine, has pkcs11-tool find a simulated
# card through p11-kit, and removes the package again. Needs root.
set -euo pipefail
. "$(dirname "$0")/usage.sh"
cd "$(dirname "$0")/.."

scripts/install-deps.sh build demo clients test package package-check
. scripts/lib.sh
. scripts/tool.sh

[ "$(id -u)" -eq 0 ] || fail "installing a package needs root"
! dpkg-query -W -f '${db:Status-Status}' quarvel 2>/dev/null | grep -qx installed || fail "the package is installed already"

rm -f build/desktop/*.deb
DESTDIR=$WORK/root scripts/run-pages.py package || fail "the pages"
[ -f "$WORK/root$(sed -n 's/^p11_module=//p' build/desktop/packaging/quarvel.pc)" ] || fail "nothing is installed"
package=$(echo build/desktop/quarvel_*.deb)
echo "Made $package ($(stat -c %s "$package") bytes)"
lintian --allow-root --fail-on error,warning "$package"

# What runs at the end whatever happens: the machine is left as it was.
remove_package() {
    dpkg --purge quarvel >/dev/null 2>&1 || true
}
trap 'remove_package; clean_up' EXIT
dpkg -i "$package" >/dev/null
module=$(pkg-config --variable=p11_module quarvel)
echo "Installed $module"
scripts/run-pages.py --check /usr/share/doc/quarvel

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

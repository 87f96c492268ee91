#!/usr/bin/env bash
# The one list of Debian packages that this project uses, and their installation:
#   scripts/install-deps.sh [GROUP...]
# installs the packages of these groups, of all groups without an argument, that are missing. Needs root for that;
# another user is told what to install.
set -euo pipefail
. "$(dirname "$0")/usage.sh"

declare -A packages=(
    # The library and quarvel-vcard.
    [build]="cmake ninja-build g++ libssl-dev zlib1g-dev libpcsclite-dev libp11-kit-dev"
    # A card in a reader of one's own.
    [reader]="pcscd libccid polkitd"
    # What ./demo.sh talks to.
    [demo]="pcscd vsmartcard-vpcd opensc openssl"
    # Its encryption on the card, which pkcs11-tool does not do.
    [demo-encrypt]="python3-pykcs11"
    # What ./test.sh runs.
    [test]="libgtest-dev libbenchmark-dev openssl clang-format-14 clang-tidy-14 python3"
    # What scripts/fuzz.sh builds with.
    [fuzz]="clang-14 libclang-rt-14-dev"
    # What scripts/coverage.sh counts with.
    [coverage]="gcovr"
    # Independent clients.
    [clients]="iproute2 pkg-config gnutls-bin gnupg gnupg-pkcs11-scd p11-kit libengine-pkcs11-openssl openssh-client openssh-server
        libnss3-tools python3-pykcs11 curl openjdk-17-jdk-headless poppler-utils osslsigncode sbsigntool openvpn
        libpam-pkcs11 libpam-wrapper pamtester"
    # The other processors and the Android check.
    [targets]="g++-arm-linux-gnueabihf g++-aarch64-linux-gnu g++-i686-linux-gnu qemu-user clang-14 lld-14 llvm-14 libc++-14-dev"
    # The Debian package.
    [package]="dpkg-dev file"
    # What scripts/check-package.sh looks at it with.
    [package-check]="lintian pkg-config libp11-kit-dev"
)

groups=("$@")
[ $# -gt 0 ] || groups=("${!packages[@]}")
missing=()
for group in "${groups[@]}"; do
    for package in ${packages[$group]?no such group}; do
        [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
    done
done
[ ${#missing[@]} -gt 0 ] || exit 0

if [ "$(id -u)" -ne 0 ]; then
    echo "These packages are missing. Please install them:" >&2
    echo "  sudo apt-get update && sudo apt-get install --no-install-recommends ${missing[*]}" >&2
    exit 1
fi
echo "Installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get -qq update
apt-get -qq --yes --no-install-recommends install "${missing[@]}" >/dev/null

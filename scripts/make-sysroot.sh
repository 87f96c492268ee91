#!/usr/bin/env bash
# Makes a sysroot of a foreign Debian architecture from downloaded packages, without touching the host's own packages:
#   scripts/make-sysroot.sh ARCHITECTURE [DIRECTORY [PACKAGE...]]
# as in `scripts/make-sysroot.sh armhf`. The default directory is build/sysroot/<architecture>, the default packages
# are what the library and its tests are built with. A finished sysroot is left as it is.
set -euo pipefail
. "$(dirname "$0")/usage.sh"
cd "$(dirname "$0")/.."

architecture=${1:?"$script --help tells what to say"}
sysroot=$(realpath -m "${2:-build/sysroot/$architecture}")
packages=("${@:3}")
[ $# -gt 2 ] || packages=(libpcsclite-dev libssl-dev zlib1g-dev libp11-kit-dev libgtest-dev libstdc++-12-dev libgcc-12-dev libc6-dev)

if [ "$(cat "$sysroot/.packages" 2>/dev/null)" = "${packages[*]}" ]; then
    echo "Sysroot for $architecture is there: $sysroot"
    exit 0
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work"/{state/lists/partial,cache/archives/partial,parts}

# The host's Debian sources without the security suite: its updates reach the architectures at different times, and
# then the versions of one source package do not fit together.
suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
mirror=$(grep -rhoE 'https?://[^ ]+/debian/?( |$)' /etc/apt/sources.list /etc/apt/sources.list.d/ 2>/dev/null | head -n 1 || true)
mirror=${mirror:-http://deb.debian.org/debian}
echo "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] ${mirror%% *} $suite main" >"$work/sources.list"

apt=(apt-get -qq
    -o "APT::Architecture=$architecture" -o "APT::Architectures::=$architecture"
    -o "Dir::State=$work/state" -o "Dir::State::status=$work/status" -o "Dir::Cache=$work/cache"
    -o "Dir::Etc::SourceList=$work/sources.list" -o "Dir::Etc::SourceParts=$work/parts"
    -o "Dir::Etc::PreferencesParts=$work/parts" -o APT::Install-Recommends=false
    -o APT::Sandbox::User=root -o Debug::NoLocking=true)
: >"$work/status"

echo "Sysroot for $architecture: asking for the package lists"
"${apt[@]}" update
echo "Sysroot for $architecture: downloading"
"${apt[@]}" --yes --download-only install "${packages[@]}"

rm -rf "$sysroot"
mkdir -p "$sysroot"
for package in "$work"/cache/archives/*.deb; do
    dpkg-deb -x "$package" "$sysroot"
done

# Absolute links would lead out of the sysroot.
find "$sysroot" -type l | while read -r link; do
    target=$(readlink "$link")
    case $target in
    /*) ln -sfnr "$sysroot$target" "$link" ;;
    esac
done
echo "${packages[*]}" >"$sysroot/.packages"
echo "Sysroot for $architecture is ready: $sysroot ($(du -sh "$sysroot" | cut -f1))"

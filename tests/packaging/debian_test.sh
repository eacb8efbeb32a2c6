#!/usr/bin/env bash
# Installs the Debian packages into a new root of this machine's Debian release. Launches an
# application there as an ordinary user, with the quillon command and with launchers that are built
# from the packages' files. Removes the packages and looks for what they left. Needs root,
# debootstrap, .NET and, for the first run of a build folder, a network: debootstrap's result is
# kept beside the packages.
#
#   debian_test.sh <folder with the packages> <managed samples>
set -euo pipefail
packages=$(cd "$1" && pwd) samples=$(cd "$2" && pwd)

skip() {
  echo "skipped: $1"
  [[ -z ${QUILLON_TESTS_MAY_NOT_SKIP:-} ]] || exit 1
  exit 77
}
((EUID == 0)) || skip "needs root"
command -v debootstrap >/dev/null || skip "needs debootstrap; run: apt-get install debootstrap"
dotnet=$(command -v dotnet) || skip "needs .NET: no 'dotnet' in PATH"
dotnet=$(dirname "$(readlink -f "$dotnet")")

# The root is in memory, in a mount namespace of this script, so nothing of it can stay.
if [[ -z ${QUILLON_DEBIAN_TEST:-} ]]; then
  work=$(mktemp -d /var/tmp/quillon-debian.XXXXXX)
  trap 'rmdir "$work"' EXIT
  QUILLON_DEBIAN_TEST=$work unshare --mount --pid --fork --kill-child --mount-proc "$0" "$@"
  exit
fi
work=$QUILLON_DEBIAN_TEST
mount -t tmpfs -o mode=755 quillon-debian "$work"
root=$work/root
quietly() { "$@" >"$work/log" 2>&1 || { tail -n 40 "$work/log"; exit 1; }; }

# What the packages need is there before, so that it can stay.
needed=libcap2,libcap-dev,libssl3,man-db,bash-completion
# shellcheck disable=SC1091  # not a file of this tree
release=$(. /etc/os-release && echo "$VERSION_CODENAME")
base=$packages/debian-root-$release.tar
if [[ ! -e $base ]]; then
  echo "== debootstrap $release"
  # shellcheck disable=SC2016  # a field of apt's format, not a variable
  mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' | sort -u |
    grep -v security | head -n 1)
  quietly debootstrap --variant=minbase --include=$needed "$release" "$root" "$mirror"
  tar -C "$root" --exclude=./var/cache/apt/archives/*.deb -cf "$base.new" .
  mv "$base.new" "$base"
else
  mkdir "$root"
  tar -C "$root" -xf "$base"
fi

echo "== launchers from the files of the packages"
for package in "$packages"/*.deb; do
  dpkg-deb -x "$package" "$work/files"
done
prefix=$work/files/usr
launcher=$prefix/share/doc/libquillon-tv-plugin-dev/examples/launcher
quietly cmake -S "$launcher" -B "$work/build" -DCMAKE_PREFIX_PATH="$prefix"
quietly cmake --build "$work/build" --parallel

echo "== installing and launching"
mkdir -p "$root$dotnet" "$root"/{packages,samples,launchers}
cp "$packages"/*.deb "$root/packages"
cp "$work"/build/launcher-{c,c-static,cxx} "$root/launchers"
mount --bind "$dotnet" "$root$dotnet"
mount --bind "$samples" "$root/samples"
ln -sf "$dotnet/dotnet" "$root/usr/bin/dotnet"
mount -t proc proc "$root/proc"
mount --rbind /dev "$root/dev"
mount --rbind /sys "$root/sys"
cat >"$root/as-user" <<'SCRIPT'
set -euo pipefail
quillon run /samples/packages/org.velora.sample.clock/bin/SampleClock.dll --exit 7 || [ $? = 7 ]
quillon doctor || true
quillon package install /samples/packages/org.velora.sample.moon.toml
man -w quillon quillon-launch quillon-launchpad quillon-package >/dev/null
man -w 5 quillon-package >/dev/null

quillon device init ~/tv >/dev/null
quillon package install --device ~/tv /samples/packages/org.velora.sample.clock.toml
plugin=$(echo /usr/lib/*/libquillon-tv-plugin.so)
for launcher in launcher-c launcher-c-static "launcher-cxx $plugin"; do
  status=0
  QUILLON_LOG=terminal quillon device shell ~/tv -- \
    /launchers/$launcher inhouse org.velora.sample.clock --exit 7 >~/log 2>&1 || status=$?
  [ $status = 7 ] && grep -q 'application: org.velora.sample.clock' ~/log ||
    { echo "$launcher: status $status"; cat ~/log; exit 1; }
done
SCRIPT
# shellcheck disable=SC2016  # for the inner shell
ROOT=$root quietly unshare --mount bash -euc '
  mount --rbind "$ROOT" "$ROOT"
  cd "$ROOT"
  pivot_root . .
  umount -l .
  export PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root DEBIAN_FRONTEND=noninteractive
  files() { find / -xdev \( -path /proc -o -path /dev -o -path /sys -o -path /var/lib -o \
    -path /var/log -o -path /var/cache -o -path /tmp -o -path /home -o -path /etc \) -prune -o \
    -print | sort; }
  files >/tmp/before
  apt-get install -y -qq --no-install-recommends /packages/*.deb
  useradd --create-home viewer
  su viewer -c "bash /as-user" | tee /tmp/log
  grep -q "application: SampleClock-" /tmp/log
  userdel --remove viewer
  apt-get purge -y -qq quillon libquillon-tv-plugin libquillon-tv-plugin-dev
  files >/tmp/after
  diff /tmp/before /tmp/after || { echo "the packages left these files behind"; exit 1; }
'
echo "installed, launched and removed"

#!/usr/bin/env bash
# Installs the Debian packages into a new Debian 12 root, launches the sample application as an
# ordinary user there, removes the packages and looks for what they left. Needs root, debootstrap, a
# network, and packages that scripts/package has built.
#
#   debian_test.sh <folder with the packages> <managed samples>
set -euo pipefail
packages=$(cd "$1" && pwd) samples=$(cd "$2" && pwd)

skip() { echo "skipped: $1"; exit 77; }
((EUID == 0)) || skip "needs root"
command -v debootstrap >/dev/null || skip "needs debootstrap"
dotnet=$(dirname "$(readlink -f "$(command -v dotnet)")") || skip "needs .NET"

work=$(mktemp -d /var/tmp/quillon-debian.XXXXXX)
trap 'rm -rf --one-file-system "$work"' EXIT
root=$work/root
# shellcheck disable=SC2016  # a field of apt's format, not a variable
mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' | sort -u |
  grep -v security | head -n 1)
debootstrap --variant=minbase --include=man-db,bash-completion bookworm "$root" "$mirror" \
  >"$work/log" 2>&1 || { tail "$work/log"; exit 1; }
rm -rf "$root"/etc/apt/sources.list*
cp -a /etc/apt/sources.list* "$root/etc/apt/"
apt-config dump | grep -iE '^Acquire::(https?::)?(Proxy|Check-)' \
  >"$root/etc/apt/apt.conf.d/99machine" || true
cp -L /etc/resolv.conf /etc/hosts "$root/etc/"
mkdir -p "$root$dotnet" "$root/packages" "$root/samples"
cp -a "$dotnet/." "$root$dotnet"
ln -sf "$dotnet/dotnet" "$root/usr/bin/dotnet"
cp "$packages"/*.deb "$root/packages"
cp -a "$samples/." "$root/samples"

# shellcheck disable=SC2016  # for the inner shell
ROOT=$root unshare --mount --pid --fork --kill-child bash -euc '
  mount --make-rprivate /
  mount --bind "$ROOT" "$ROOT"
  mount -t proc proc "$ROOT/proc"
  mount --rbind /dev "$ROOT/dev"
  mount --rbind /sys "$ROOT/sys"
  cd "$ROOT"
  pivot_root . .
  umount -l .
  export PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root DEBIAN_FRONTEND=noninteractive
  apt-get update -qq >/dev/null
  files() { find / -xdev \( -path /proc -o -path /dev -o -path /sys -o -path /var/lib -o \
    -path /var/log -o -path /var/cache -o -path /tmp -o -path /home -o -path /etc \) -prune -o \
    -print | sort; }
  # What the packages need stays, so it is there before.
  apt-get install -y -qq --no-install-recommends libboost-filesystem1.74.0 libcap2 libssl3 \
    ca-certificates >/dev/null 2>&1
  files >/tmp/before
  apt-get install -y -qq --no-install-recommends /packages/*.deb >/dev/null
  useradd --create-home viewer
  cat >/tmp/as-user <<"SCRIPT"
    set -euo pipefail
    quillon run /samples/packages/org.velora.sample.clock/bin/SampleClock.dll --exit 7 ||
      [ $? = 7 ]
    quillon doctor || true
    quillon package install /samples/packages/org.velora.sample.moon.toml
    man -w quillon quillon-launch quillon-launchpad quillon-package >/dev/null
    man -w 5 quillon-package >/dev/null
SCRIPT
  su viewer -c "bash /tmp/as-user" >/tmp/log 2>&1 || { cat /tmp/log; exit 1; }
  grep -q "application: SampleClock-" /tmp/log || { cat /tmp/log; exit 1; }
  userdel --remove viewer 2>/dev/null
  apt-get purge -y -qq quillon libquillon-tv-plugin libquillon-tv-plugin-dev >/dev/null
  files >/tmp/after
  diff /tmp/before /tmp/after >/tmp/left || { echo "left behind:"; cat /tmp/left; exit 1; }
'
echo "installed, launched and removed"

#!/usr/bin/env bash
# Installs the Debian packages into a new root of this machine's Debian release. Launches an
# application there as an ordinary user, with the quillon command and with launchers that are built
# from the packages' files. Removes the packages and looks for what they left. Needs root,
# debootstrap, .NET and, for the first run of a build folder, a network: debootstrap's result is
# kept beside the packages.
#
#   debian_test.sh [--build] <folder with the packages> <managed samples>
#
# With --build, apt gets what the packages depend on from Debian's mirror, and the launchers are
# built inside the root, so that a missing dependency shows. Prints the figures.
set -euo pipefail
arguments=("$@") build=0
if [[ ${1:-} == --build ]]; then
  build=1
  shift
fi
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
  QUILLON_DEBIAN_TEST=$work unshare --mount --pid --fork --kill-child --mount-proc "$0" "${arguments[@]}"
  exit
fi
work=$QUILLON_DEBIAN_TEST
mount -t tmpfs -o mode=755 quillon-debian "$work"
root=$work/root
quietly() { "$@" >"$work/log" 2>&1 || { tail -n 40 "$work/log"; exit 1; }; }

# Without --build, what the packages need is there before, so that no network is needed.
needed=man-db,bash-completion
((build)) || needed+=,libcap2,libcap-dev,libssl3
# shellcheck disable=SC1091  # not a file of this tree
release=$(. /etc/os-release && echo "$VERSION_CODENAME")
base=$packages/debian-root-$release.tar
((!build)) || base=$packages/debian-root-$release-bare.tar
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

mkdir -p "$root"/{packages,samples,launchers}
if ((!build)); then
  echo "== launchers from the files of the packages"
  for package in "$packages"/*.deb; do
    dpkg-deb -x "$package" "$work/files"
  done
  prefix=$work/files/usr
  launcher=$prefix/share/doc/libquillon-tv-plugin-dev/examples/launcher
  quietly cmake -S "$launcher" -B "$work/build" -DCMAKE_PREFIX_PATH="$prefix"
  quietly cmake --build "$work/build" --parallel
  cp "$work"/build/launcher-{c,c-static,cxx} "$root/launchers"
fi

echo "== installing and launching"
mkdir -p "$root$dotnet"
cp "$packages"/*.deb "$root/packages"
mount --bind "$dotnet" "$root$dotnet"
mount --bind "$samples" "$root/samples"
ln -sf "$dotnet/dotnet" "$root/usr/bin/dotnet"
mount -t proc proc "$root/proc"
mount --rbind /dev "$root/dev"
mount --rbind /sys "$root/sys"
cat >"$root/as-user" <<'SCRIPT'
set -euo pipefail
status=0
quillon run /samples/packages/org.velora.sample.clock/bin/SampleClock.dll --exit 7 || status=$?
[ $status = 7 ]
quillon doctor || true
quillon package install /samples/packages/org.velora.sample.moon.toml
man -w quillon quillon-launch quillon-launchpad quillon-package >/dev/null
man -w 5 quillon-package >/dev/null
SCRIPT
cat >"$root/launchers-as-user" <<'SCRIPT'
set -euo pipefail
[ -e ~/tv ] || quillon device init ~/tv >/dev/null
quillon package install --device ~/tv /samples/packages/org.velora.sample.clock.toml
plugin=$(echo /usr/lib/*/libquillon-tv-plugin.so)
# The root has no ICU. The example launchers do not read the setting in the runtimeconfig.json.
export DOTNET_SYSTEM_GLOBALIZATION_INVARIANT=1
for launcher in launcher-c launcher-c-static "launcher-cxx $plugin"; do
  status=0
  QUILLON_LOG=terminal quillon device shell ~/tv -- \
    /launchers/$launcher inhouse org.velora.sample.clock --exit 7 >~/log 2>&1 || status=$?
  [ $status = 7 ] && grep -q 'application: org.velora.sample.clock' ~/log ||
    { echo "$launcher: status $status"; cat ~/log; exit 1; }
done
SCRIPT
# shellcheck disable=SC2016  # for the inner shell
ROOT=$root BUILD=$build quietly unshare --mount bash -euo pipefail -c '
  mount --rbind "$ROOT" "$ROOT"
  cd "$ROOT"
  pivot_root . .
  umount -l .
  export PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root DEBIAN_FRONTEND=noninteractive
  # Every file of the root with its kind, mode, owner, target and contents, except what changes with
  # any package: the records of apt and dpkg, the cache of ldconfig, and the index of manual pages.
  # A user keeps the home folder. /launch has what this test writes.
  files() {
    find / -xdev \( -path /home/viewer -o -path /launch -o -path /var/lib/apt -o \
      -path /var/lib/dpkg -o -path /var/cache/apt -o -path /var/log/apt -o \
      -path /var/log/dpkg.log -o -path /var/cache/ldconfig -o -path /etc/ld.so.cache -o \
      -path /var/cache/man -o -path /var/cache/debconf \) -prune -o \
      -printf "%y %m %u:%g %p %l\n" -type f -exec sha256sum {} + | sort
  }
  mkdir /launch
  useradd --create-home viewer
  files >/launch/before
  apt-get install -y -qq --no-install-recommends /packages/*.deb
  su viewer -c "bash /as-user" | tee /launch/log
  grep -q "application: SampleClock-" /launch/log
  ((BUILD)) || su viewer -c "bash /launchers-as-user"
  apt-get purge -y -qq --autoremove $(for file in /packages/*.deb; do dpkg-deb -f $file Package; done)
  files >/launch/after
  diff /launch/before /launch/after || { echo "the packages left these files behind"; exit 1; }
  ((BUILD)) || exit 0

  # Uses make: an author of a launcher who installs a compiler and CMake may not have Ninja.
  apt-get install -y -qq --no-install-recommends g++ make cmake pkg-config /packages/*.deb
  example=$(dpkg -L libquillon-tv-plugin-dev | grep "/examples/launcher$")
  cmake -S $example -B /launch/build
  cmake --build /launch/build
  cp /launch/build/launcher-{c,c-static,cxx} /launchers
  su viewer -c "bash /launchers-as-user"
  cc $example/launcher.c $example/host.c -o /launchers/launcher-c \
    $(pkg-config --cflags --libs quillon-tv-plugin)
  cc $example/launcher.c $example/host.c -o /launchers/launcher-c-static $(
    pkg-config --cflags --libs --static quillon-tv-plugin |
      sed s/-lquillon-tv-plugin/-l:libquillon-tv-plugin.a/)
  su viewer -c "bash /launchers-as-user"
'
echo "installed, launched and removed"
if ((build)); then
  count=$(find "$packages" -maxdepth 1 -name '*.deb' | wc -l)
  echo "figure: Debian packages, installed and removed in a new root | $count | $count | met"
  echo "figure: Debian packages, files left behind | 0 | 0 | met"
fi

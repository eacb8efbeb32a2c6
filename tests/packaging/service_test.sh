#!/usr/bin/env bash
# systemd accepts the launch pad's unit without a remark.
#
#   service_test.sh <unit> <quillon command>
set -euo pipefail
unit=$1 quillon=$2
if ! command -v systemd-analyze >/dev/null; then
  echo "skipped: needs systemd-analyze; run: apt-get install systemd"
  [[ -z ${QUILLON_TESTS_MAY_NOT_SKIP:-} ]] || exit 1
  exit 77
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# On this machine the command is not on systemd's search path.
sed "s|^\(Exec[A-Za-z]*\)=quillon |\1=$quillon |" "$unit" >"$work/quillon-launchpad@.service"
ln -s quillon-launchpad@.service "$work/quillon-launchpad@home-viewer-tv.service"
XDG_RUNTIME_DIR=$work systemd-analyze verify --user --man=no \
  "$work/quillon-launchpad@home-viewer-tv.service" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
# Unknown settings are remarks only.
[[ ! -s $work/log ]] || { cat "$work/log"; exit 1; }

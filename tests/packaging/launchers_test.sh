#!/usr/bin/env bash
# Runs the launchers that install_test.sh has built, with the sample application, in a device root.
#
#   launchers_test.sh <folder of install_test.sh> <managed samples, or "">
set -euo pipefail
tree=$1 samples=${2:-}
prefix=$tree/prefix
quillon=$prefix/bin/quillon
libraries=$(dirname "$(find "$prefix" -name libquillon-tv-plugin.so)")
work=$(mktemp -d "$tree/work.XXXXXX")
trap 'rm -rf "$work"' EXIT
device=$work/device
traces=$device/opt/usr/home/owner

skip() {
  echo "skipped: $1"
  [[ -z ${QUILLON_TESTS_MAY_NOT_SKIP:-} ]] || exit 1
  exit 77
}
quietly() { "$@" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }; }

launchers=({,pkg-}launcher-{c,c-static,cxx})

# launch <status> <type> <application> <argument>...: runs every launcher inside the device root
# and expects the exit status. The prefix of the quillon command is visible inside.
launch() {
  local expected=$1 launcher status command
  shift
  for launcher in "${launchers[@]}"; do
    command=("$prefix/launchers/$launcher")
    [[ $launcher != *-cxx ]] || command+=("$libraries/libquillon-tv-plugin.so")
    status=0
    rm -f "$traces/$launcher"
    LD_LIBRARY_PATH=$libraries QUILLON_LOG=terminal "$quillon" device shell "$device" -- \
      env "QUILLON_TRACE=${traces#"$device"}/$launcher" "${command[@]}" "$@" \
      >"$work/$launcher" 2>&1 || status=$?
    if ((status != expected)); then
      echo "$launcher $*: status $status instead of $expected"
      cat "$work/$launcher"
      exit 1
    fi
  done
}

# contains <text> [<folder>]: expects a text in the output of every launcher, or in the folder's
# files, which are named after the launchers.
contains() {
  local launcher file
  for launcher in "${launchers[@]}"; do
    file=${2:-$work}/$launcher
    grep -qF -- "$1" "$file" && continue
    echo "'$1' is missing in the output of $launcher:"
    cat "$file"
    exit 1
  done
}

[[ -n $samples ]] || skip "without a .NET SDK there is no application to launch"
quietly "$quillon" device init "$device"
status=0
"$quillon" device shell "$device" -- true >"$work/log" 2>&1 || status=$?
((status != 102)) || skip "$(cat "$work/log")"  # no mount namespace
((status == 0)) || { cat "$work/log"; exit 1; }
cp "$samples/Preload/Preload.dll" "$device/usr/share/dotnet.velora/framework"
for package in clock calendar moon; do
  quietly "$quillon" package install --device "$device" \
    "$samples/packages/org.velora.sample.$package.toml"
done

for type in inhouse inhouseapitest normal dotnet; do
  launch 7 $type org.velora.sample.clock --exit 7
  contains "application: org.velora.sample.clock"
  contains "process name: DN_sample.clock"
  contains "base directory: /opt/usr/apps/org.velora.sample.clock/bin/"
  contains "[quillon-tv-plugin] "  # a milestone, in the log and by prctl(2)
  contains "[quillon-tv-plugin] " "$traces"
done

# The plug-in's handler of SIGABRT has a rule for this exception.
launch 0 inhouse org.velora.sample.clock --throw
contains "<<< onSigabrt >>>"
contains "Ignore Coredump was setted. Terminate normally"

launch 1 inhouse org.velora.sample.nothing
contains "launcher: no application 'org.velora.sample.nothing' is installed"

# An application without the platform privilege.
mkdir -p "$work/plain/bin"
cp "$samples/packages/org.velora.sample.clock/bin/SampleClock.dll" "$work/plain/bin"
cat >"$work/plain.toml" <<'MANIFEST'
[package]
id = "org.example.plain"
version = "1"
files = "plain"
[[application]]
id = "org.example.plain"
exec = "bin/SampleClock.dll"
MANIFEST
quietly "$quillon" package install --device "$device" "$work/plain.toml"
launch 0 inhouse org.example.plain
contains "### This App doesn't have platform privilege ###"
contains "launcher: the plug-in refused the application"

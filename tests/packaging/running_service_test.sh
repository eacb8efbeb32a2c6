#!/usr/bin/env bash
# Runs the launch pad as a service of a systemd of this test, as an ordinary user: the service
# starts, serves launches, prepares its processes anew, is restarted if it hangs, and waits for the
# applications when it stops.
#
#   running_service_test.sh UNIT QUILLON SAMPLES [LINE...]
#
# SAMPLES is the folder of the managed samples, or "". Each LINE is added to the unit's [Service],
# to try what a directive does to the launches.
set -euo pipefail
systemd=/lib/systemd/systemd
export PATH=$PATH:/usr/sbin:/sbin

skip() {
  echo "skipped: $1"
  [[ -z ${QUILLON_TESTS_MAY_NOT_SKIP:-} ]] || exit 1
  exit 77
}

# systemd needs a control group that its user may write to, and folders below /run. The test makes
# both in namespaces of its own. Its systemd manages no other process of the machine.
if [[ -z ${QUILLON_SERVICE_TEST:-} ]]; then
  ((EUID == 0)) || skip "needs root, to make a control group for systemd"
  [[ -x $systemd ]] || skip "needs systemd; run: apt-get install systemd"
  [[ -n $3 ]] || skip "without a .NET SDK there is no application to launch"
  namespaces=(unshare --mount --cgroup --pid --fork --kill-child --mount-proc)
  "${namespaces[@]}" true || skip "this machine makes no namespaces"
  hierarchy=$(awk '$3 == "cgroup2" { print $2; exit }' /proc/self/mounts)
  # A container may have none, also where no test may skip.
  [[ -n $hierarchy ]] || { echo "skipped: needs a mounted cgroup2 file system"; exit 77; }
  group=$(mktemp -d "$hierarchy/quillon-test.XXXXXX") ||
    { echo "skipped: cannot make a control group"; exit 77; }
  work=$(mktemp -d /var/tmp/quillon-service.XXXXXX)
  # shellcheck disable=SC2317  # the trap calls it
  finish() {
    rm -rf "$work"
    # A process leaves its group some time after its end.
    for ((i = 0; i < 100; i++)); do
      find "$group" -depth -type d -exec rmdir {} + 2>/dev/null && break
      sleep 0.1
    done
  }
  trap finish EXIT
  # shellcheck disable=SC2016  # for the inner shell
  QUILLON_SERVICE_TEST=$work bash -c 'echo $$ >"$0/cgroup.procs" && exec "$@"' \
    "$group" "${namespaces[@]}" "$0" "$@"
  exit
fi

unit=$1 quillon=$(readlink -f "$2") samples=$(readlink -f "$3")
shift 3
work=$QUILLON_SERVICE_TEST
home=$work/home device=$work/home/tv
user=54323 runtime=/run/user/54323
failed() {
  echo "$1"
  control status "$service" --no-pager || true
  tail -n 40 "$work"/*.log
  exit 1
}
quietly() { "$@" >"$work/command.log" 2>&1 || failed "failed with status $?: $*"; }
# Waits until a command succeeds.
await() {
  local end=$((SECONDS + 60))
  until "$@"; do
    ((SECONDS < end)) || failed "still not true: $*"
    sleep 0.1
  done
}

# What was inherited would keep prepared processes from taking a launch over.
for descriptor in /proc/self/fd/*; do
  descriptor=${descriptor##*/}
  ((descriptor <= 2 || descriptor == 255)) || eval "exec $descriptor>&-"
done
mount -t cgroup2 quillon-test /sys/fs/cgroup
chmod 755 /sys/fs/cgroup "$work"
mount -t tmpfs -o mode=755 quillon-test /run
mkdir -p /run/systemd/system /run/user  # the first says that systemd runs
install -d -m 700 -o $user -g $user $runtime "$home"
mkdir /sys/fs/cgroup/user
chown -R $user:$user /sys/fs/cgroup/user
echo $$ >/sys/fs/cgroup/user/cgroup.procs

as_user() {
  setpriv --reuid $user --regid $user --clear-groups --inh-caps=-all \
    env -i "PATH=$PATH" "HOME=$home" "XDG_RUNTIME_DIR=$runtime" "$@"
}
control() { as_user systemctl --user "$@"; }
property() { control show --property "$1" --value "$service"; }

# The unit as it is installed, with a shorter time for the watchdog, and a drop-in that says where
# this build's program is.
units=$home/.config/systemd/user
as_user mkdir -p "$units/quillon-launchpad@.service.d"
sed 's/^WatchdogSec=.*/WatchdogSec=5/' "$unit" >"$units/quillon-launchpad@.service"
printf '%s\n' '[Service]' "ExecSearchPath=$(dirname "$quillon")" "$@" \
  >"$units/quillon-launchpad@.service.d/test.conf"
service=quillon-launchpad@$(systemd-escape --path "$device").service

as_user "$systemd" --user &
await test -S $runtime/systemd/private
quietly as_user "$quillon" device init "$device"
quietly as_user "$quillon" package install --device "$device" \
  "$samples/packages/org.velora.sample.clock.toml"

status() { as_user "$quillon" launchpad status --device "$device"; }
ready() { status | grep -q ': ready'; }
processes() { status | grep -o '^  process [0-9]*' | sort; }
# launch NUMBER: launches the application through the service, as its launch with that number.
launch() {
  local ending=0
  await ready
  as_user "$quillon" launch --device "$device" org.velora.sample.clock -- --exit 7 \
    >"$work/launch.log" 2>&1 || ending=$?
  status >"$work/status.log" || true
  ((ending == 7)) || failed "launch $1 ended with $ending"
  grep -q 'application: org.velora.sample.clock' "$work/launch.log" || failed "launch $1: no output"
  grep -qx "served: $1" "$work/status.log" || failed "launch $1 was not served"
}

echo "== start"
quietly control start "$service"
quietly status  # it serves when the command returns
# systemd raises the value for the services of a user. A process with another one launches directly.
cat "/proc/$(property MainPID)/oom_score_adj" >/proc/$$/oom_score_adj
launch 1

echo "== reload"
former=$(processes)
quietly control reload "$service"
await ready
[[ -z $(comm -12 <(echo "$former") <(processes)) ]] || failed "processes stayed: $former"
launch 2

echo "== a launch pad that hangs"
former=$(property MainPID)
kill -STOP "$former"
restarted() { [[ $(property NRestarts) == 1 && $(property ActiveState) == active ]]; }
await restarted
[[ $(property MainPID) != "$former" ]]
launch 1

echo "== stop, with an application"
await ready
as_user "$quillon" launch --device "$device" org.velora.sample.clock -- --wait 3 --exit 8 \
  >"$work/launch.log" 2>&1 &
application=$!
begun() { grep -q 'application: org.velora.sample.clock' "$work/launch.log"; }
await begun
quietly control stop "$service"
ending=0
wait $application || ending=$?
((ending == 8)) || failed "the application ended with $ending"
[[ $(property Result) == success ]] || failed "stop: $(property Result)"
control exit
echo "started, launched, reloaded, restarted and stopped"

#!/usr/bin/env bash
# unitTest.sh BUILD_DIRECTORY - runs the daemon's unit under a systemd that is process 1 of a private world.
#
# The daemon becomes active, answers, reaches all that it needs through its confinement, survives a restart and a kill,
# and stops with nothing left; the device manager that it started stays. Confinement that this machine does not permit
# is taken out of the unit, and the report says so. Exit status 77 where there is no systemd or no way to start one.
set -euo pipefail

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build=$(realpath -- "$1")
readonly project build
readonly systemd=/lib/systemd/systemd
readonly report=$build/unitTest.report
readonly units=/run/kzUnits
readonly unit=kzBleSdkD.service
readonly exposure_limit=24  # tenths

skip() {
    echo "unitTest: skipped: $*"
    exit 77
}

# ---------------------------------------------------------------- outside: a control group, and a world in it

run_outside() {
    local tree group status
    [[ -x $systemd ]] || skip "systemd is not installed"
    ((EUID == 0)) || skip "needs root"
    tree=$(awk '$3 == "cgroup2" { print $2; exit }' /proc/mounts)
    [[ -n $tree ]] || skip "no control groups of version 2"
    group=$tree/kzUnitTest$$
    mkdir "$group" 2>/dev/null || skip "cannot make a control group"
    rm -f "$report"
    (
        echo "$BASHPID" >"$group/cgroup.procs"
        exec timeout 100 "$project/scripts/world" --keep "$build" unshare --cgroup \
            env KZ_UNIT_STAGE=boot "$project/tests/systemd/unitTest.sh" "$build"
    ) || true
    find "$group" -depth -type d -exec rmdir {} \; 2>/dev/null || true
    [[ -s $report ]] || skip "systemd does not start in a world of its own here"
    cat "$report"
    status=$(sed -n 's/^exit status: //p' "$report")
    exit "${status:-1}"
}

# ---------------------------------------------------------------- boot: process 1, about to become systemd

# The unit as it is installed, and nothing of this machine: no other unit is to be found.
write_units() {
    local target
    mkdir -p "$units/$unit.d"
    cp "$build/packaging/$unit" "$units/"
    for target in sysinit basic shutdown; do
        printf '[Unit]\nDefaultDependencies=no\n' >"$units/$target.target"
    done
    # The libraries of this build; the journal, which does not run here, would have the texts.
    cat >"$units/$unit.d/test.conf" <<EOF
[Service]
Environment=LD_LIBRARY_PATH=$1
StandardError=append:/tmp/daemon.err
EOF
    cat >"$units/check.service" <<EOF
[Unit]
DefaultDependencies=no
[Service]
Environment=KZ_UNIT_STAGE=check LD_LIBRARY_PATH=$1 "PATH=$PATH"
ExecStart=$project/tests/systemd/unitTest.sh $build
StandardOutput=append:$report
StandardError=append:$report
LimitMSGQUEUE=infinity
EOF
}

run_boot() {
    local daemon
    mount -t tmpfs -o mode=755 world-run /run
    umount -l -R /sys/fs/cgroup
    mount -t cgroup2 world-cgroup /sys/fs/cgroup
    daemon=$(sed -n 's/^ExecStart=//p' "$build/packaging/$unit")
    mount -t tmpfs -o mode=755 world-sbin "$(dirname "$daemon")"
    cp "$build/kzBleSdkD/src/kzBleSdkD" "$daemon"
    mkdir /run/kzLibraries
    ldd "$daemon" | awk -v build="$build/" 'index($3, build) == 1 { print $3 }' | xargs cp -t /run/kzLibraries
    write_units /run/kzLibraries
    exec env -i container=world SYSTEMD_UNIT_PATH="$units" PATH="$PATH" \
        "$systemd" --system --unit=check.service --log-target=null --show-status=no
}

# ---------------------------------------------------------------- check: a service of that systemd

readonly manager=/usr/local/zorvik/bin/kzDeviceManager

step() { echo "- $*"; }
fail() {
    echo "FAILED: $*"
    systemctl show -p ActiveState,Result,ExecMainCode,ExecMainStatus,NRestarts "$unit"
    tail -n 20 /tmp/daemon.err /tmp/camera.log
    exit 1
}
# until_true SECONDS COMMAND...
until_true() {
    local tries=$(($1 * 20))
    shift
    while ! "$@" >/dev/null 2>&1; do
        ((tries-- > 0)) || return 1
        sleep 0.05
    done
}
daemon_answers() { until_true 20 kzble --timeout 500 info || fail "no answer after $1"; }
main_process() { systemctl show --value -p MainPID "$unit"; }
own_queues_exist() { compgen -G '/dev/mqueue/to_*ble*' >/dev/null || compgen -G '/dev/mqueue/to_kzBleD' >/dev/null; }

start_camera() {
    local models=/usr/local/zorvik/etc/58
    install -d "$models" "${manager%/*}" /tmp/fuse_d /tmp/kzcamera
    install -m 644 "$project/simulator/data/58/"* "$models/"
    gzip -9 -n -c "$models/settings.json" >"$models/settings.json.gz"
    # Says how it was started, and stays.
    cat >"$manager" <<'EOF'
#!/bin/sh
sed -n "s/^Sig\(Blk\|Ign\):/\1/p" /proc/$$/status >/tmp/managerSignals
echo $$ >/tmp/managerProcess
while sleep 1; do :; done
EOF
    chmod +x "$manager"
    kzCameraSim >/tmp/camera.log 2>&1 &
    until_true 10 test -S /tmp/kzcamera/radio || fail "the camera does not start"
    echo 10 >/proc/sys/fs/mqueue/msg_max  # as the kernel has it
    python3 -c '
import socket
log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
log.bind("/dev/log")
while True:
    open("/tmp/syslog", "ab").write(log.recv(4096) + b"\n")' &
    until_true 10 test -S /dev/log || fail "the system log does not start"
}

# Starts the unit; without what needs a mount namespace where there is none to be had.
start_unit() {
    touch /dev/mqueue/to_kzBleD /dev/mqueue/to_blesdk  # left by a killed daemon
    if systemctl start "$unit"; then
        return
    fi
    [[ $(systemctl show --value -p ExecMainStatus "$unit") == 226 ]] || fail "the unit does not start"
    echo "NOT CHECKED on this machine, which permits no mount namespaces:"
    grep -E '^(Protect(System|Home|Control|Kernel|Hostname)|ReadWritePaths|PrivateMounts|ProcSubset)' "$units/$unit" |
        sed 's/=.*/=/' | tee -a "$units/$unit.d/test.conf"
    systemctl daemon-reload
    systemctl start "$unit" || fail "the unit does not start without a mount namespace either"
}

check_manager() {
    local first second
    setsid "$manager" &
    first=$!
    until_true 5 test -s /tmp/managerProcess || fail "the device manager does not start"
    rm /tmp/managerProcess
    kzble auth a-code || fail "the authentication code is refused"
    until_true 5 test -s /tmp/managerProcess || fail "no new device manager"
    second=$(</tmp/managerProcess)
    if kill -0 "$first" 2>/dev/null && [[ $(ps -o stat= "$first") != Z* ]]; then
        fail "the old device manager lives"
    fi
    grep -qv '[1-9a-f]' <(sed 's/^...//' /tmp/managerSignals | tr -d '[:space:]') ||
        fail "the device manager starts with signals blocked or ignored: $(</tmp/managerSignals)"
    echo "$second"
}

run_check() {
    local before manager_process
    trap 'echo "exit status: $?"; systemctl --force exit' EXIT
    export PATH=$build/client:$build/simulator:$PATH KZ_CATALOGUE=/usr/local/zorvik/etc/58/settings.json
    start_camera

    step "exposure: $(systemd-analyze security --offline=true --threshold=$exposure_limit "$units/$unit" | tail -n 1)"
    systemd-analyze security --offline=true --threshold=$exposure_limit "$units/$unit" >/dev/null || fail "too exposed"

    step "it starts over the queues of a killed one, and answers"
    start_unit
    daemon_answers "the start"
    systemctl is-active --quiet "$unit" || fail "it is not active"

    step "its confinement leaves it what it needs"
    kzble debug log-level 5
    kzble version >/dev/null
    until_true 5 grep -q 'Executing Command' /tmp/syslog || fail "nothing in the system log"
    printf 'certificate' >/tmp/certificate
    kzble live start rtmps://example/stream --certificate /tmp/certificate >/dev/null || fail "no live stream"
    [[ -s /tmp/tmp_certs.crt ]] || fail "no certificate file"
    check_manager
    manager_process=$(</tmp/managerProcess)

    step "it survives a restart, and so does the device manager"
    before=$(main_process)
    systemctl restart "$unit" || fail "no restart"
    daemon_answers "the restart"
    [[ $(main_process) != "$before" ]] || fail "the restart changed nothing"

    step "it comes back after it was killed"
    kill -9 "$(main_process)"
    daemon_answers "the kill"

    step "it stops with nothing left"
    systemctl stop "$unit" || fail "no stop"
    [[ $(systemctl show --value -p Result "$unit") == success ]] || fail "the stop is no success"
    [[ $(systemctl show --value -p ExecMainStatus "$unit") == 0 ]] || fail "the stop has another status than 0"
    ! own_queues_exist || fail "its queues stay"
    ! pgrep -x kzBleSdkD >/dev/null || fail "its process stays"
    kill -0 "$manager_process" || fail "the device manager is gone"
}

"run_${KZ_UNIT_STAGE:-outside}"

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
readonly prefix=/tmp/installed
readonly units=/run/kzUnits
readonly unit=kzBleSdkD.service
readonly exposure_limit=24  # tenths

skip() {
    echo "unitTest: skipped: $*"
    exit 77
}

# until_true SECONDS COMMAND...
until_true() {
    local end=$((SECONDS + $1))
    shift
    while ! "$@" >/dev/null 2>&1; do
        ((SECONDS <= end)) || return 1
        sleep 0.05
    done
}

# ---------------------------------------------------------------- outside: a control group, and a world in it

# Fails while processes that were killed are still on their way out.
remove_group() {
    find "$1" -depth -type d -exec rmdir {} \;
    [[ ! -d $1 ]]
}

run_outside() {
    local tree group
    [[ -x $systemd ]] || skip "systemd is not installed"
    ((EUID == 0)) || skip "needs root"
    tree=$(awk '$3 == "cgroup2" { print $2; exit }' /proc/mounts)
    [[ -n $tree ]] || skip "no control groups of version 2"
    group=$tree/kzUnitTest$$
    mkdir "$group" 2>/dev/null || skip "cannot make a control group"
    rm -f "$report"
    (
        echo "$BASHPID" >"$group/cgroup.procs"
        exec timeout --signal=KILL 100 "$project/scripts/world" --keep "$build" unshare --cgroup \
            env KZ_UNIT_STAGE=boot "$project/tests/packaging/unitTest.sh" "$build"
    ) || true
    until_true 5 remove_group "$group" || echo "unitTest: $group stays"
    [[ -s $report ]] || skip "systemd does not start in a world of its own here"
    cat "$report"
    exit "$(awk '/^exit status: / { status = $3 } END { print status == "" ? 1 : status }' "$report")"
}

# ---------------------------------------------------------------- boot: process 1, about to become systemd

# The unit as it is installed, and nothing of this machine: no other unit is to be found.
write_units() {
    local target
    mkdir -p "$units/$unit.d"
    cp "$prefix/lib/systemd/system/$unit" "$units/"
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
ExecStart=$project/tests/packaging/unitTest.sh $build
StandardOutput=append:$report
StandardError=append:$report
LimitMSGQUEUE=infinity
EOF
}

run_boot() {
    mount -t tmpfs -o mode=755 world-run /run
    umount -l -R /sys/fs/cgroup
    mount -t cgroup2 world-cgroup /sys/fs/cgroup
    if ! cmake --install "$build" --component daemon --prefix "$prefix" >/dev/null; then
        echo "FAILED: the installation" >>"$report"
        exit 1
    fi
    mkdir /run/kzLibraries
    ldd "$build/kzBleSdkD/src/kzBleSdkD" | awk -v build="$build/" 'index($3, build) == 1 { print $3 }' |
        xargs cp -t /run/kzLibraries
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
    tail -n 20 /tmp/daemon.err /tmp/camera.log /tmp/syslog
    exit 1
}
daemon_answers() { until_true 20 kzble --timeout 500 info || fail "no answer after $1"; }
main_process() { systemctl show --value -p MainPID "$unit"; }
own_queues_exist() { [[ -e /dev/mqueue/to_kzBleD || -e /dev/mqueue/to_blesdk ]]; }

has_capability() {
    local held
    held=$(sed -n 's/^CapBnd:\s*//p' /proc/self/status)
    (((16#$held >> $1) & 1))
}

start_camera() {
    local models=/usr/local/zorvik/etc/58
    install -d "$models" "${manager%/*}" /tmp/fuse_d /tmp/kzcamera
    install -m 644 "$project/simulator/data/58/"* "$models/"
    gzip -9 -n -c "$models/settings.json" >"$models/settings.json.gz"
        cat >"$manager" <<'EOF'
#!/bin/sh
echo $$ >/tmp/managerProcess
while sleep 1; do :; done
EOF
    chmod +x "$manager"
    kzCameraSim >/tmp/camera.log 2>&1 &
    until_true 10 test -S /tmp/kzcamera/radio || fail "the camera does not start"
    if has_capability 24; then
        echo 10 >/proc/sys/fs/mqueue/msg_max  # as the kernel has it
    else
        echo "NOT CHECKED on this machine, which gives root no CAP_SYS_RESOURCE: the kernel's own limit of queues"
    fi
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
    local -r needs_mounts='^(Protect(System|Home|Control|Kernel|Hostname)|ReadWritePaths|PrivateMounts|ProcSubset)'
    # Left by a killed daemon. Other tests' queues may fill what the kernel gives root, for a while.
    until_true 20 touch /dev/mqueue/to_kzBleD /dev/mqueue/to_blesdk || fail "no room for message queues"
    if systemctl start "$unit"; then
        return
    fi
    [[ $(systemctl show --value -p ExecMainStatus "$unit") == 226 ]] || fail "the unit does not start"
    echo "NOT CHECKED on this machine, which permits no mount namespaces:"
    grep -E "$needs_mounts" "$units/$unit"
    sed -i -E "/$needs_mounts/d" "$units/$unit"
    systemctl daemon-reload
    systemctl start "$unit" || fail "the unit does not start without a mount namespace either"
}

is_alive() { [[ $(ps -o stat= "$1") == [^Z]* ]]; }

# An authentication code ends the device manager, whoever started it, and starts another.
check_manager() {
    local first
    setsid "$manager" &
    disown
    until_true 5 test -s /tmp/managerProcess || fail "the device manager does not start"
    first=$(</tmp/managerProcess)
    rm /tmp/managerProcess
    kzble auth a-code >/dev/null || fail "the authentication code is refused"
    until_true 5 test -s /tmp/managerProcess || fail "no new device manager"
    ! is_alive "$first" || fail "the old device manager lives"
}

run_check() {
    local before manager_process
    trap 'echo "exit status: $?"; systemctl --force exit' EXIT
    export PATH=$build/client:$build/simulator:$PATH KZ_CATALOGUE=/usr/local/zorvik/etc/58/settings.json
    start_camera

    step "its exposure is below 2.5"
    systemd-analyze security --offline=true --threshold=$exposure_limit "$units/$unit" >/tmp/exposure || fail "too exposed"
    tail -n 1 /tmp/exposure

    step "it starts over the queues of a killed one, and answers"
    start_unit
    daemon_answers "the start"
    systemctl is-active --quiet "$unit" || fail "it is not active"
    [[ $(systemctl show --value -p NRestarts "$unit") == 0 ]] || fail "it took more than one start"

    step "its confinement leaves it what it needs"
    kzble debug log-level 5 >/dev/null
    kzble version >/dev/null
    until_true 5 grep -q 'Executing Command' /tmp/syslog || fail "nothing in the system log"
    kzble live start rtmps://example/stream --cert certificate >/dev/null || fail "no live stream"
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
    is_alive "$manager_process" || fail "the device manager is gone"

    step "killed and stopped it leaves nothing either"
    systemctl start "$unit"
    daemon_answers "another start"
    systemctl kill --kill-who=main --signal=KILL "$unit"
    systemctl stop "$unit"
    ! own_queues_exist || fail "the queues of a killed one stay"

    step "started by hand it goes to the background, and a closed standard error is no harm"
    timeout 5 "$prefix/sbin/kzBleSdkD" 2>&- || fail "its parent does not leave"
    daemon_answers "the start by hand"
    kzble debug shutdown >/dev/null
    until_true 10 eval '! pgrep -x kzBleSdkD' || fail "it does not stop"
    ! own_queues_exist || fail "its queues stay"
}

"run_${KZ_UNIT_STAGE:-outside}"

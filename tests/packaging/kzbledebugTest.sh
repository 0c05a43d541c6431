#!/usr/bin/env bash
# kzbledebugTest.sh BUILD_DIRECTORY - kzbledebug beside a daemon that is missing, runs, hangs and was killed.
#
# To be run as process 1 of a world (scripts/world), so that the daemon stays its child.
set -euo pipefail

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
source "$project/scripts/common.sh"
forget_other_cameras
use_programs "$(realpath -- "$1")"
readonly log=/tmp/daemon.log

fail() {
    echo "FAILED: $*" >&2
    cat /tmp/answer >&2
    tail -n 20 "$log" >&2
    exit 1
}
# until_true COMMAND... - for ten seconds
until_true() {
    local tries=200
    while ! "$@" >/dev/null 2>&1; do
        ((tries-- > 0)) || fail "never true: $*"
        sleep 0.05
    done
}
# ends STATUS TEXT WORD... - kzbledebug ends so, and says so
ends() {
    local status=0 wanted=$1 text=$2
    shift 2
    kzbledebug "$@" >/tmp/answer 2>&1 || status=$?
    ((status == wanted)) || fail "status $status, not $wanted: kzbledebug $*"
    [[ -n $text || ! -s /tmp/answer ]] || fail "kzbledebug $* says something"
    [[ -z $text ]] || grep -q -- "$text" /tmp/answer || fail "no \"$text\" of kzbledebug $*"
}
start_daemon() {
    kzBleSdkD 2>>"$log" &
    daemon=$!
    until_true kzble info
}
logged() { until_true grep -q -- "$1" "$log"; }

echo "- wrong use, without a camera"
ends 64 "a command is missing"
ends 64 "unknown command: nonsense" nonsense
for words in "log-level" "log-level 7" "log-level -1" "log-level 06" "log-level x" "log-level 4 4" "dump 1" "shutdown now"; do
    # shellcheck disable=SC2086
    ends 64 "usage: kzbledebug" $words
done
ends 0 "usage: kzbledebug" --help
ends 0 '^kzbledebug [0-9]' --version
if kzbledebug --version 2>/dev/null >/dev/full; then fail "a version that cannot be printed"; fi

echo "- no radio stack, no daemon"
ends 4 "radio stack does not run" dump
"$project/scripts/camera-files"
kzCameraSim >/dev/null 2>&1 &
until_true test -e /dev/mqueue/Mq_to_BleSdk
ends 4 "kzBleSdkD does not run" dump

echo "- a daemon that runs"
start_daemon
ends 0 "" log-level 6
kzble info >/dev/null
logged '\[TRACE\]'
ends 0 "" dump
logged "ble rx message queue fullness"
ends 0 "" log-level 2
logged "KZBLE_SET_LOG_LEVEL: level:2" # its last line
: >"$log"
ends 0 "" dump
kzble info >/dev/null
[[ ! -s $log ]] || fail "lines above level 2"

echo "- one that hangs, and that was killed"
kill -STOP "$daemon"
ends 1 "the record is written, but" dump
kill -CONT "$daemon"
ends 0 "" dump
kill -KILL "$daemon"
wait "$daemon" || true
ends 1 "the record is written, but" dump
writers=()
for ((i = 0; i < 110; ++i)); do # more than the queue holds
    kzbledebug dump 2>/dev/null &
    writers+=($!)
done
wait "${writers[@]}" || true
ends 1 "nothing is written: the queue stays full" dump

echo "- shutdown"
rm -f /dev/mqueue/to_kzBleD /dev/mqueue/to_blesdk
start_daemon
ends 0 "" shutdown
wait "$daemon" || fail "the daemon's end is no success"
ends 4 "kzBleSdkD does not run" dump

#!/usr/bin/env bash
# recordingTest.sh BUILD_DIRECTORY - records devices on a simulated camera, from both sides, plays them again, and has
# tshark decode them. To be run in a world of its own (scripts/world).
source "$(dirname "$0")/../../scripts/common.sh"

folder=$(mktemp -d)
cd "$folder"
forget_other_cameras
use_programs "$1"
trap 'exit 130' INT TERM # process 1 of a world has to say so itself

fail() {
    echo "FAILED: $*" >&2
    tail -n 30 answer camera.log daemon.log >&2
    exit 1
}
until_true() {
    local tries
    for ((tries = 0; tries < 1400; tries++)); do # longer than the camera waits for room for its queues
        "$@" >/dev/null 2>&1 && return
        sleep 0.05
    done
    fail "it never comes true: $*"
}
# ends STATUS COMMAND... - what it says goes to the file "answer".
ends() {
    local status=0 wanted=$1
    shift
    "$@" >answer 2>&1 || status=$?
    ((status == wanted)) || fail "status $status, not $wanted: $*"
}
answers() { grep -qE -- "$1" answer || fail "no \"$1\" in the answer"; }
daemon=
daemon_answers() {
    kzble --timeout 500 info && return
    if ! kill -0 "$daemon"; then # none yet, or it found no room
        rm -f /dev/mqueue/to_kzBleD /dev/mqueue/to_blesdk
        kzBleSdkD >daemon.log 2>&1 &
        daemon=$!
    fi
    return 1
}
replay() { ends "$1" kzble --timeout 1000 replay "${@:2}"; }

"$project/scripts/camera-files"
kzCameraSim --record all.pcapng >camera.log 2>&1 &
camera=$!
until_true test -S /tmp/kzcamera/radio
until_true daemon_answers

echo "- what was recorded gets the same answers again"
while read -r status name words; do
    eval "ends $status kzble --record $name.pcapng $words"
    replay 0 --fast "$name.pcapng"
    answers '^[1-9][0-9]* messages?, no difference$'
done <<'ROWS'
0 set set "Frame Rate" 1
0 info info
0 time time get
0 get get "Video Resolution"
0 presets preset list
0 catalogue fetch-settings -o catalogue.gz
3 watch --address 02:00:00:00:00:07 watch --setting "Video Resolution" --for 0.5
2 refused set "Video Resolution" 250
0 strap --address 02:00:00:00:00:0c sensor --samples 8 --fast
ROWS
cp all.pcapng before.pcapng # of many devices, and the camera goes on recording
replay 0 before.pcapng

echo "- a camera that answers otherwise is noticed, and one that does not answer"
kzcamctl setting "Video Resolution" 1080p >/dev/null
until_true sh -c 'kzble get "Video Resolution" | grep -q 1080p'
replay 1 get.pcapng
answers '^0\.[0-9]* s  connection [0-9]+  query-answer get-settings: Video Resolution: expected 4K [(]1[)], got 1080p [(]9[)]$'
answers '1 of 1 message differs'
kzcamctl refuse SET_SETTING_ID -17 >/dev/null
replay 1 set.pcapng
answers 'settings-answer option: Frame Rate: expected success, got failure'
replay 64 --connection 99 get.pcapng
kzcamctl radio stop >/dev/null
replay 3 get.pcapng
answers 'got nothing$'
kzcamctl radio go >/dev/null

echo "- a file that is no recording is told"
while read -r words; do
    eval "$words" >wrong.pcapng
    replay 1 wrong.pcapng
    answers 'wrong.pcapng: '
done <<'ROWS'
head -c 100 /dev/zero
head -c -1 get.pcapng
true
ROWS

echo "- tshark decodes it"
if type -P tshark >/dev/null; then
    decode() {
        tshark -X "lua_script:$project/packaging/wireshark/kzble.lua" \
            -o "uat:protobuf_search_paths:\"$project/libkzProtoCpp/src\",\"TRUE\"" -r "$@" >answer 2>tshark.log ||
            fail "tshark $*"
    }
    while IFS='|' read -r recording wanted; do
        decode "$recording.pcapng" -V
        answers "$wanted"
    done <<'ROWS'
info|Device: 02:00:00:00:00:01, type 0
info|answer camera-info
get|Setting: Video Resolution = 1 4K
presets|preset_array
refused|Result: invalid
catalogue|Payload: 1f8b08
ROWS
    decode before.pcapng -Y kzble.problem
    [[ ! -s answer ]] || fail "packets that do not fit together"
fi

kzble debug shutdown >/dev/null
wait "$daemon"
replay 4 get.pcapng
kill "$camera"
wait
rm -rf "$folder"

#!/usr/bin/env bash
# recordingTest.sh BUILD_DIRECTORY - records sessions on a simulated camera, from both sides, plays them again, and has
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
# until_true SECONDS COMMAND...
until_true() {
    local tries=$(($1 * 20))
    shift
    while ! "$@" >/dev/null 2>&1; do
        ((tries-- > 0)) || return 1
        sleep 0.05
    done
}
# ends STATUS COMMAND... - what it says goes to the file "answer".
ends() {
    local status=0 wanted=$1
    shift
    "$@" >answer 2>&1 || status=$?
    ((status == wanted)) || fail "status $status, not $wanted: $*"
}
answers() { grep -qE -- "$1" answer || fail "no \"$1\" in the answer"; }
replay() { kzble --timeout 1000 replay "$@"; }

"$project/scripts/camera-files"
kzCameraSim --record all.pcapng >camera.log 2>&1 &
camera=$!
until_true 10 test -S /tmp/kzcamera/radio || fail "kzCameraSim does not start"
kzBleSdkD >daemon.log 2>&1 &
until_true 20 kzble --timeout 500 info || fail "kzBleSdkD does not start"

echo "- what was recorded gets the same answers again"
record() { ends "$1" kzble --record "$2.pcapng" "${@:3}"; }
record 0 info info
record 0 time time get
record 0 get get "Video Resolution"
record 0 presets preset list
record 0 catalogue fetch-settings -o catalogue.gz
record 0 watch --address 02:00:00:00:00:07 watch --setting "Video Resolution" --for 1
record 2 refused set "Frame Rate" 1
record 0 strap --address 02:00:00:00:00:0c sensor --samples 8 --fast
for recording in info time get presets catalogue watch refused strap; do
    ends 0 replay --no-wait "$recording.pcapng"
    answers '^[1-9][0-9]* messages?, no difference$'
done
cp all.pcapng before.pcapng
ends 0 replay --speed 100 before.pcapng

echo "- a camera that answers otherwise is noticed"
kzcamctl setting "Video Resolution" 1080p >/dev/null
until_true 5 sh -c 'kzble get "Video Resolution" | grep -q 1080p' || fail "the daemon does not hear of the change"
ends 1 replay --no-wait get.pcapng
answers '^0\.[0-9]* s  connection [0-9]+  query-answer get-settings: expected 12 00 02 01 [0-9a-f]+, got 12 00 02 01 09$'
answers '1 of 1 message differ'
ends 1 replay --no-wait --json get.pcapng
answers '"stream":14,"name":"get-settings","expected":"12 00'
ends 1 replay --times --no-wait time.pcapng
ends 1 replay --connection 99 get.pcapng
kzcamctl radio stop >/dev/null
ends 1 replay --no-wait get.pcapng
answers 'got nothing$'
kzcamctl radio go >/dev/null

echo "- a file that is no recording is told"
while read -r words; do
    eval "$words" >wrong.pcapng
    ends 1 replay wrong.pcapng
    answers '^kzble: wrong.pcapng: '
done <<'ROWS'
head -c 100 /dev/urandom
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
info|answer get-camera-info|answer camera-info
get|Setting: Video Resolution = 
presets|custom_preset
refused|Result: invalid
catalogue|answer fetch-settings: success, [0-9]+ bytes
ROWS
    decode before.pcapng -Y kzble.problem
    [[ ! -s answer ]] || fail "packets that do not fit together"
fi

kzble debug shutdown >/dev/null
kill "$camera"
wait
rm -rf "$folder"

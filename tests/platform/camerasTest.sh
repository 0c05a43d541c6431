#!/usr/bin/env bash
# camerasTest.sh BUILD_DIRECTORY own|ordinary - two kept cameras at once, and what kzcamctl says to them.
#
# They are listed, entered, killed, started again and ended. As the user who runs it, or as an ordinary one. Exit status 77
# where that cannot be tried.
set -euo pipefail

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
KZ_BUILD=$(realpath -- "$1")
export KZ_BUILD
cd "$project"

if [[ $2 == ordinary ]]; then
    if ((EUID == 0)); then
        nobody=(setpriv --reuid=65534 --regid=65534 --clear-groups)
        if ! "${nobody[@]}" test -x "$0" -a -x "$KZ_BUILD" 2>/dev/null; then
            echo "skipped: an ordinary user cannot reach $project"
            exit 77
        fi
        exec "${nobody[@]}" "$0" "$1" ordinary
    fi
    scripts/world true 2>/dev/null || exit 77
fi

folder=$(mktemp -d)
export XDG_RUNTIME_DIR=$folder
keepers=()
clean_up() {
    kill "${keepers[@]}" 2>/dev/null || true
    wait
    rm -rf "$folder"
}
trap clean_up EXIT
fail() {
    echo "FAILED: $*" >&2
    tail -n 30 "$folder"/*.out "$folder/answer" >&2
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
    "$@" >"$folder/answer" 2>&1 || status=$?
    ((status == wanted)) || fail "status $status, not $wanted: $*"
}
answers() { grep -qE -- "$1" "$folder/answer" || fail "no \"$1\" in the answer"; }
left() { scripts/enter left "$@"; }
keep() {
    scripts/run --keep "$@" >"$folder/$1.out" 2>&1 &
    keepers+=($!)
}

echo "- two cameras do not see each other"
ends 4 scripts/enter kzble info
keep left
keep right -- --model 60
for name in left right; do
    until_true 90 grep -q "camera $name is up" "$folder/$name.out" || fail "$name does not start"
done
ends 1 scripts/run --keep left
ends 64 scripts/enter kzble info
answers "left right"
ends 0 left kzcamctl battery 12
ends 0 left kzble --json status "Battery Percent"
answers '\b12\b'
ends 0 scripts/enter right kzble --json status "Battery Percent"
answers '\b80\b'
ends 0 scripts/cameras --json
answers '^\{"name": "right".*"model": 60, "clients": 0, "daemon": "up"'
ends 0 left python3 -c 'import os; os.openpty()'

echo "- the end of a daemon is told, and it starts again"
left pkill -SEGV -x kzBleSdkD
until_true 5 grep -q 'kzBleSdkD of left ended by signal 11' "$folder/left.out" || fail "its end is not told"
ends 0 scripts/cameras
answers 'left .*signal 11'
ends 0 scripts/restart left
left pkill -KILL -x kzCameraSim
until_true 5 grep -q 'kzCameraSim of left ended by signal 9' "$folder/left.out" || fail "its end is not told"
ends 4 left kzcamctl state
ends 0 scripts/restart left
ends 0 left kzble info

echo "- kzcamctl's exit status"
while read -r status words; do
    eval "ends $status left kzcamctl $words"
    eval "ends $status left kzcamctl --json $words"
    python3 -c 'import json, sys
answer, status = json.load(sys.stdin), int(sys.argv[1])
assert answer.get("code", 0) == status and (status == 0 or answer["message"]), answer' "$status" <"$folder/answer" ||
        fail "no JSON of status $status: $words"
done <<'ROWS'
0 setting "Video Resolution" 1080p
0 setting video-resolution 9
2 setting 2 77
64 setting 2 1080q
2 setting 250 1
64 setting Nothing 1
0 setting 250 1 --force
2 status 250 1
64 status Busy x
64 battery 101
64 log-level 7
64 nonsense
0 record on
0 sd out
2 record on
0 sd in
ROWS
before=$(left kzcamctl --json state | python3 -c 'import json, sys; print(json.load(sys.stdin)["settings"])')
ends 0 left kzcamctl setting "Frame Rate" 24
shows_24() { left kzble get "Frame Rate" | grep -q '= 24'; }
until_true 5 shows_24 || fail "the daemon does not hear of the change"
ends 0 left kzcamctl undo
answers 'Frame Rate 24'
[[ $(left kzcamctl --json state | python3 -c 'import json, sys; print(json.load(sys.stdin)["settings"])') == "$before" ]] ||
    fail "undo leaves something changed"
left kzcamctl room >"$folder/answer" 2>&1 || true # whether another one fits is up to others
answers RLIMIT_MSGQUEUE
camera=$(left pgrep -x kzCameraSim)
left kill -STOP "$camera"
ends 3 left kzcamctl battery 50
left kill -CONT "$camera"

echo "- nothing stays"
kill "${keepers[0]}"
wait "${keepers[0]}" || fail "the end of left is no success"
[[ ! -e $folder/kzcameras/left ]] || fail "left stays registered"
ends 0 scripts/enter kzble info
kill -KILL "${keepers[1]}"
until_true 10 sh -c '[ "$(scripts/cameras)" = "no camera is up; start one with scripts/run --keep" ]' ||
    fail "right outlives its keeper"
[[ -z $(ls "$folder/kzcameras") ]] || fail "the register is not empty"

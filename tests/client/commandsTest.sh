#!/usr/bin/env bash
# commandsTest.sh BUILD_DIRECTORY - runs the commands of commands.rows with the real programs.
#
# To be run as process 1 of a world (scripts/world), so that the daemon stays its child.
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source "$here/../../scripts/common.sh"
set +e
forget_other_cameras
use_programs "$(realpath -- "$1")"
source "$project/packaging/completion/kzble"
export HOME=/tmp

# until_true COMMAND... - for ten seconds
until_true() {
    for ((tries = 0; tries < 200; ++tries)); do
        "$@" >/dev/null 2>&1 && return 0
        sleep 0.05
    done
    return 1
}
start_camera() {
    kzCameraSim --metadata-file /tmp/metadata >/tmp/camera.log 2>&1 </dev/null &
    until_true test -S /tmp/kzcamera/radio
}
start_daemon() {
    until_true test ! -e /dev/mqueue/to_kzBleD
    kzBleSdkD 2>>/tmp/daemon.log </dev/null &
    daemon=$!
    until_true kzble info
}
# Each command's example is at least understood. There is no camera yet, so that it does nothing.
examples_are_right() {
    local example wrong=0
    while IFS= read -r example; do
        eval "$example" </dev/null 2>&1
        (($? != 64)) || { echo "wrong: $example" && wrong=1; }
    done < <(kzble generate examples)
    return "$wrong"
}
use_large_catalogue() {
    "$project/scripts/make-large-catalogue" /usr/local/zorvik/etc/58/settings.json
}
# typed TEXT... - what a shell on a terminal prints when these are typed, one after the other
typed() {
    local text
    for text in "$@"; do
        sleep 0.7
        printf '%b' "$text"
    done | timeout 20 script -qec "exec kzble shell" /dev/null
}
# completed WORD... - what the last word may become
completed() {
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=()
    _kzble
    printf '%s\n' "${COMPREPLY[@]}"
}

"$project/scripts/camera-files"
failures=0
count=0
while IFS= read -r row; do
    [[ $row == [0-9]* ]] || continue
    wanted=${row%% | *} pattern=${row##* |} command=${row#* | }
    command=${command% |*} pattern=${pattern# }
    eval "${command//\\|/|}" >/tmp/answer 2>&1 </dev/null
    status=$?
    ((++count))
    if ((status != wanted)) || ! grep -qE -- "$pattern" /tmp/answer && [[ -n $pattern ]]; then
        echo "FAILED with $status, not $wanted | $command | $pattern" >&2
        tail -n 5 /tmp/answer >&2
        ((++failures))
    fi
done <"$here/commands.rows"
echo "$count rows, $failures failed"
((count > 50 && failures == 0)) || { tail -n 20 /tmp/daemon.log >&2; exit 1; }

#!/usr/bin/env bash
# platformCheckTest.sh BUILD_DIRECTORY STUBS FAULTY_LIBRARY - kzPlatformCheck on our own libraries with the simulated
# camera behind them, on the example libraries, and on one with each fault.
set -euo pipefail

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
if [[ -z ${KZ_WORLD:-} ]]; then
    exec "$project/scripts/world" --keep "$1" "$0" "$@"
fi
build=$1 stubs=$2 faulty=$3
export PATH=$build/integration:$build/simulator:$PATH KZ_CATALOGUE=/usr/local/zorvik/etc/58/settings.json
unset KZ_CTRL_SOCKET KZ_CSI_SOCKET KZ_IPC_SOCKET KZ_RADIO_SOCKET KZ_CONSOLE_SOCKET
answer=$(mktemp)

fail() {
    echo "FAILED: $*" >&2
    grep -vE '^[a-z.-]+ +ok ' "$answer" >&2
    exit 1
}
# ends STATUS COMMAND... - what it says goes to the file "answer".
ends() {
    local status=0 wanted=$1
    shift
    timeout -k 5 120 "$@" >"$answer" 2>/dev/null || status=$?
    ((status == wanted)) || fail "status $status, not $wanted: $*"
}
answers() { grep -qE -- "$1" "$answer" || fail "no \"$1\""; }
broken_ones() { python3 -c 'import json, sys
print(*[one["name"] for one in json.load(sys.stdin)["promises"] if one["result"] == "broken"])' <"$answer"; }

echo "- our own libraries keep everything, whatever their camera does"
"$project/scripts/camera-files"
kzCameraSim >/tmp/camera.log 2>&1 &
camera=$!
for ((tries = 0; tries < 100; ++tries)); do
    [[ ! -S /tmp/kzcamera/radio ]] || break
    sleep 0.1
done
ours=(kzPlatformCheck --library-path "$build/platform")
ends 0 "${ours[@]}"
answers '^[0-9]{2} ok, 0 broken, 0 not tried'
for part in control network metadata; do
    kzcamctl part "$part" hang
done
ends 0 "${ours[@]}" --services hung hung.command hung.csi-get hung.ipc
answers '^3 ok'
ends 1 "${ours[@]}" --services absent absent.command
kill "$camera"
wait "$camera" || true
ends 0 "${ours[@]}" --services absent
ends 1 "${ours[@]}" control.open
[[ -z $(ls /dev/mqueue) ]] || fail "a queue stays"

echo "- so do the example libraries, as far as libraries can"
ends 0 kzPlatformCheck --library-path "$stubs"
answers '^[0-9]{2} ok, 0 broken, 7 not tried'
ends 1 kzPlatformCheck --library-path "$stubs" --services absent

echo "- each fault is seen, and nothing else"
while IFS='|' read -r fault promises; do
    groups=(load process control csi ipc)
    [[ $promises != push* ]] || groups=(push) # they wait for silence, so only where it matters
    KZ_FAULT=$fault ends 1 kzPlatformCheck --json --patience 2 --kzCtrlD "$faulty" --csi "$faulty" --kzipc "$faulty" \
        "${groups[@]}"
    [[ $(broken_ones) == "$promises" ]] || fail "a library that $fault breaks \"$(broken_ones)\", not \"$promises\""
done <<'ROWS'
starts a thread|process.threads
dies in a fork|process.fork
ends its process in a fork|process.fork process.end
serves one thread|process.thread
ignores a signal|process.state
leaks a descriptor|process.leaks
dies at the end|process.end
does not open|process.fork process.thread process.leaks control.open control.reopen
is another model|control.models control.options
names the caller slowly|control.caller
leaves the status unwritten|control.status
says no length|control.length
overruns a short reply|control.short
needs a length|control.null
leaves the information unwritten|control.info
writes behind the information|control.info
accepts every option|control.option
hangs|control.time
crashes|control.preset
refuses late|control.refusal
refuses with EPIPE|control.refusal
pushes nothing|push.values
waits for room|push.values push.full push.end
pushes on|push.end
overruns a short value|csi.short
pads values|csi.byte
takes short values only|csi.text
takes a longer channel|ipc.channel
opens one channel|process.thread ipc.again
ROWS

for fault in "hangs up late" "gives up early"; do
    KZ_FAULT=$fault ends 1 kzPlatformCheck --csi "$faulty" --services hung hung.csi-get
done
echo "- an interrupted check leaves nothing"
for number in INT TERM HUP QUIT; do
    timeout --preserve-status --signal "$number" 1 kzPlatformCheck --library-path "$stubs" push >/dev/null || true
    [[ -z $(ls /dev/mqueue) ]] || fail "$number leaves a queue"
done

echo "- a library that lacks a function, is not there or is for another processor, and queues that are"
ends 1 kzPlatformCheck --library-path "$stubs" --csi "$stubs/libkzipc.so" load csi
answers '^load.csi +broken .* lacks csi_get and 1 more$'
answers '^csi.byte +broken .* needs csi_get, which is missing$'
ends 1 kzPlatformCheck --library-path /tmp load.csi
cp "$stubs/libcsi.so" /tmp/foreign.so
printf '\x08' | dd of=/tmp/foreign.so bs=1 seek=18 conv=notrunc status=none # the number of a processor
ends 1 kzPlatformCheck --library-path "$stubs" --csi /tmp/foreign.so load.csi
answers '^load.csi +broken .* /tmp/foreign.so is for another processor$'
cd "$stubs"
LD_LIBRARY_PATH=. ends 0 kzPlatformCheck load process
python3 - <<'PYTHON'
import ctypes, os
libc = ctypes.CDLL(None, use_errno=True)
for name, depth, size in (b"/to_kzBleD", 10, 1500), (b"/to_kznet", 10, 1500), (b"/Mq_to_BleSdk", 100, 89):
    assert libc.mq_open(name, os.O_CREAT | os.O_RDWR, 0o600, (ctypes.c_long * 8)(0, depth, size)) >= 0
PYTHON
ends 0 kzPlatformCheck --library-path "$stubs" push.end
answers '^push.end +not tried .* /to_kzBleD exists: stop kzBleSdkD first$'
[[ -e /dev/mqueue/to_kzBleD ]] || fail "somebody else's queue is removed"
ends 1 kzPlatformCheck --json --library-path "$stubs" radio.in notice.subscribe
[[ $(broken_ones) == "radio.in notice.subscribe" ]] || fail "\"$(broken_ones)\" with queues that nobody serves"
rm /dev/mqueue/*

echo "- wrong use"
while read -r words; do
    eval "ends 64 kzPlatformCheck $words"
done <<'ROWS'
--services asleep
--services 0
--library-path /nowhere
--patience 0
nonsense
--services hung control.open
ROWS
ends 0 kzPlatformCheck --list
ends 0 kzPlatformCheck --version

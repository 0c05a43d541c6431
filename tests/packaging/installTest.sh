#!/usr/bin/env bash
# installTest.sh BUILD_DIRECTORY - installs the build under a relative prefix that needs quoting, and uses it from there:
# programs, manual pages, unit, catalogue, and the client library in somebody else's project.
#
# To be run as process 1 of a world (scripts/world).
set -euo pipefail

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
source "$project/scripts/common.sh"
forget_other_cameras
unset LD_LIBRARY_PATH CMAKE_PREFIX_PATH PKG_CONFIG_PATH
build=$(realpath -- "$1")
readonly build prefix='/tmp/my 100% own'
readonly models=/usr/local/zorvik/etc

fail() {
    echo "FAILED: $*" >&2
    tail -n 20 /tmp/*.log >&2
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

echo "- nothing in it but symbols names the folder that it was built in"
(cd /tmp && cmake --install "$build" --prefix "${prefix#/tmp/}" --strip) >/tmp/install.log
! grep -rlF -e "$project" -e "$build" --exclude=*.a "$prefix" || fail "these do"
find "$prefix" -xtype l | (! grep .) || fail "these links lead nowhere"

echo "- every program says its version and has a page, a user's with all of its options"
readonly programs=("$prefix"/bin/* "$prefix"/sbin/*)
for program in "${programs[@]}"; do
    name=${program##*/}
    page=$(echo "$prefix"/share/man/man?/"$name".?)
    [[ -f $page ]] || fail "$name has no page"
    "$program" --version </dev/null | grep -q "^$name [0-9.]* (commit ." || fail "the version of $name"
    [[ $program == */bin/* ]] || continue # a user's program, which knows --help
    "$program" --help >/tmp/help
    text=$(sed 's/\\-/-/g' "$page")
    while read -r option; do
        grep -qwe "$option" <<<"$text" || fail "the page of $name lacks $option"
    done < <(sed -nE 's/^ +(-.,)?(--[A-Za-z-]+).*/\2/p' /tmp/help | grep .)
done
((${#programs[@]} == 7)) || fail "there are ${#programs[@]} programs"

echo "- the unit starts the daemon of this prefix"
sed -i 's/^\(Wants\|After\)=.*//' "$prefix/lib/systemd/system/kzBleSdkD.service" # of a camera
systemd-analyze verify --man=no "$prefix/lib/systemd/system/kzBleSdkD.service" >/tmp/unit.log 2>&1 || fail "the unit"
! grep -F kzBleSdkD /tmp/unit.log || fail "the unit"

echo "- camera, daemon, client and desk find each other and their files"
mkdir -p /tmp/kzcamera /tmp/fuse_d
export PATH=$prefix/bin:$prefix/sbin:$PATH
kzCameraSim >/tmp/camera.log 2>&1 & # which finds the catalogue of its tree
until_true test -S /tmp/kzcamera/radio
mkdir -p "$models"
ln -s "$prefix/share/kzcamerasim/58" "$models/58"
gzip -dc "$models/58/settings.json.gz" | cmp - "$models/58/settings.json"
kzBleSdkD 2>/tmp/daemon.log &
until_true kzble info
kzdesk --listen 0 >/tmp/desk.log &
until_true grep -q http /tmp/desk.log
python3 -c 'import sys, urllib.request
sys.stdout.buffer.write(urllib.request.urlopen(sys.argv[1] + "/protocol.json").read())' \
    "$(sed 's/^kzdesk: //; s/\/*$//' /tmp/desk.log)" | cmp - "$prefix/share/kzble/protocol/protocol.json"

echo "- a program is built against the client library, by CMake and by pkg-config"
readonly source=$project/tests/packaging/consumer
cmake -G Ninja -S "$source" -B /tmp/consumer "-DCMAKE_PREFIX_PATH=$prefix" >/tmp/consumer.log
cmake --build /tmp/consumer >>/tmp/consumer.log 2>&1 || fail "it does not build with CMake"
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
eval "c++ -std=c++20 -o /tmp/other '$source/consumer.cpp' $(pkg-config --cflags --libs kzBleClient)" >>/tmp/consumer.log 2>&1 ||
    fail "it does not build with pkg-config"
for program in /tmp/consumer/consumer /tmp/other; do
    [[ $("$program") == "01 02 01 00, "[1-9]* ]] || fail "$program has another answer: $("$program" 2>&1)"
done

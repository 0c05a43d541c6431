#!/usr/bin/env bash
# commandsTest.sh BUILD_DIRECTORY - runs the commands that the documents show, and fails at one that commands.table lacks.
#
# A command is a line that is indented by four blanks, in any document but protocol.md (there such lines are bytes, which
# protocolTest plays). They run one after the other in a folder that looks like the project's, so that relative paths
# work and what they write stays out of the sources.
set -euo pipefail

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
KZ_BUILD=$(realpath -- "$1")
export KZ_BUILD
readonly table=$project/tests/docs/commands.table
cd "$project"
documents=(README.md docs/*.md packaging/wireshark/README.md)

folder=$(mktemp -d "$KZ_BUILD/documents.XXXXXX")
export XDG_RUNTIME_DIR=$folder/register
mkdir -p "$XDG_RUNTIME_DIR" "$folder/view/build" "$folder/view/FOLDER"
for entry in "$project"/*; do
    [[ ${entry##*/} == build ]] || ln -s "$entry" "$folder/view/"
done
ln -s "$KZ_BUILD" "$folder/view/build/release"
keepers=()
requests=()
clean_up() {
    kill "${keepers[@]}" 2>/dev/null || true
    wait
    rm -rf "$folder"
}
trap clean_up EXIT
failures=0
failed() {
    echo "FAILED: $*" >&2
    tail -n 15 "$folder/answer" >&2
    failures=$((failures + 1))
}

# The commands of a document, one a line: continued lines joined, remarks removed.
commands_of() {
    awk '/^```/ { fence = !fence }
         fence || !/^    [^ ]/ && !more { next }
         { sub(/^ +/, ""); sub(/[[:blank:]]+#.*/, "") }
         more { $0 = more $0; more = "" }
         /\\$/ { sub(/\\$/, ""); more = $0; next }
         !/^#/ { print }' "$1"
}
how_to_treat() { command=$1 awk '{ at = index($0, " | ") } substr($0, at + 3) == ENVIRON["command"] { print substr($0, 1, at - 1) }' "$table"; }

run() { bash -c "$1" </dev/null >"$folder/answer" 2>&1; }
keep() {
    eval "exec $1" </dev/null >"$folder/answer" 2>&1 &
    keepers+=($!)
    for ((tries = 0; tries < 900; ++tries)); do
        desk=$(sed -n 's|.*http://||p' "$folder/answer")
        ! grep -q 'camera .* is up' "$folder/answer" || return 0
        kill -0 "${keepers[-1]}" 2>/dev/null || return 1
        sleep 0.1
    done
    return 1
}
exists() {
    case $1 in
        cmake*) run "$1 -- -n" ;;
        ctest*) run "$1 -N --no-tests=error" && grep -q '^Total Tests: [1-9]' "$folder/answer" ;;
        *) run "$1 --gtest_list_tests" && grep -q '^  ' "$folder/answer" ;;
    esac
}
runs_tests() { run "$1" && grep -qE '^\[  PASSED  \] [1-9]|100% tests passed, .* out of [1-9]' "$folder/answer"; }
answers() { run "$1" || (($? == 1)); }

treat() {
    case $(how_to_treat "$1") in
        run) run "$1" || failed "$1" ;;
        fields) run "$1" && grep -q 'preset_array' "$folder/answer" || failed "$1" ;;
        attach) run "$1" && grep -q 'Inferior 1 .* detached' "$folder/answer" || failed "$1" ;;
        any) answers "$1" || failed "$1" ;;
        keep) keep "$1" || failed "$1" ;;
        "beside left") run "scripts/enter left $1" || failed "$1" ;;
        exists) exists "$1" || failed "$1" ;;
        test) runs_tests "$1" || failed "$1" ;;
        desk) requests+=("${1/127.0.0.1:8080/$desk}") ;;
        "") failed "tests/docs/commands.table does not know: $1" ;;
    esac
}

# The cameras first: the other documents need one.
mapfile -t shown < <(for document in docs/cameras.md "${documents[@]/docs\/protocol.md/}"; do
    [[ -z $document ]] || commands_of "$document"
done | awk '!seen[$0]++')
cd "$folder/view"
for command in "${shown[@]}"; do
    : >"$folder/answer"
    treat "$command"
    printf '%3d s  %-9.9s %s\n' "$SECONDS" "$(how_to_treat "$command")" "$command"
done
# Requests of the desk share their variables: they run as one script.
echo "${#requests[@]} requests to $desk"
run "$(printf '%s\n' "${requests[@]}" wait)" || failed "the requests of the desk's guide"
! grep '"error"' "$folder/answer" && grep -q '"name":"success"' "$folder/answer" || failed "the requests of the desk's guide"
((${#shown[@]} > 30)) || failed "the documents show only ${#shown[@]} commands"
((failures == 0))

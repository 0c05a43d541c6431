# Shared by the scripts; sourced, not run.
set -euo pipefail

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
readonly project

# A compiler cache, where there is one, serves every checkout.
export CCACHE_BASEDIR=$project CCACHE_NOHASHDIR=1

# Configures and builds one preset: build PRESET [TARGET...]. One at a time, whoever else builds here.
build() {
    local preset=$1 turn
    shift
    mkdir -p "$project/build"
    exec {turn}>"$project/build/.turn"
    flock "$turn"
    local launcher=()
    if command -v ccache >/dev/null; then
        launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    fi
    (cd "$project" && cmake --preset "$preset" "${launcher[@]}" >/dev/null)
    cmake --build "$project/build/$preset" ${1:+--target "$@"} {turn}>&-
    exec {turn}>&-
}

# The camera that others reach is found at its fixed paths, in a world of its own; what the caller's environment says
# of another one does not count there.
forget_other_cameras() {
    unset KZ_CTRL_SOCKET KZ_CSI_SOCKET KZ_IPC_SOCKET KZ_RADIO_SOCKET KZ_CONSOLE_SOCKET KZ_CATALOGUE
}

# Puts the programs of a build into reach: use_programs BUILD_DIRECTORY.
use_programs() {
    export PATH=$1/client:$1/simulator:$1/kzBleSdkD/src:$1/desk:$PATH
    export KZ_CATALOGUE=/usr/local/zorvik/etc/58/settings.json
}

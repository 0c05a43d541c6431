# Shared by the scripts; sourced, not run.
set -euo pipefail

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
readonly project

# A compiler cache, where there is one, serves every checkout.
export CCACHE_BASEDIR=$project CCACHE_NOHASHDIR=1

# Configures and builds one preset: build PRESET [TARGET...].
build() {
    local preset=$1
    shift
    local launcher=()
    if command -v ccache >/dev/null; then
        launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    fi
    (cd "$project" && cmake --preset "$preset" "${launcher[@]}" >/dev/null)
    cmake --build "$project/build/$preset" ${1:+--target "$@"}
}

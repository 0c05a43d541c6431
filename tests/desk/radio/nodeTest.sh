#!/usr/bin/env bash
# nodeTest.sh TEST BUILD - runs a test in a world of its own; 77 without the programs and libraries that it needs.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
project=$(cd "$here/../../.." && pwd)
if ! command -v node >/dev/null || ! command -v btvirt >/dev/null || [[ ! -d $project/desk/node_modules ]]; then
    echo "scripts/setup --desk installs what this needs"
    exit 77
fi
cd "$project"
exec scripts/world --keep "$2" node "$here/$1" "$2"

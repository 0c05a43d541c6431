#!/usr/bin/env bash
# linkTest.sh BUILD - linkTest.mjs in a world of its own; 77 without the programs that it needs.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
project=$(cd "$here/../../.." && pwd)
if ! command -v node btvirt >/dev/null || [[ ! -d $project/desk/node_modules ]]; then
    echo "scripts/setup --desk installs what this needs"
    exit 77
fi
cd "$project"
exec scripts/world --keep "$1" node "$here/linkTest.mjs" "$1"

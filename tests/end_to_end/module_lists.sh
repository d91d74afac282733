#!/usr/bin/env bash
# The built module has the exports that callers look up, imports only what every Windows has, and nothing else. module_lists.sh BIN
set -euo pipefail

here=$(dirname "$0")
# shellcheck source=scripts/binaries.sh
source "$here/../../scripts/binaries.sh"
export LC_ALL=C

{
    exports_of "$1/QueltaCSP.dll" | sed 's/^/exports /'
    imports_of "$1/QueltaCSP.dll" | sed 's/^/imports /'
} | diff "$here/module_lists.txt" -

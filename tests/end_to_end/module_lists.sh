#!/usr/bin/env bash
# module_lists.sh BIN: compares the exports and imports of the built module with module_lists.txt. Callers look up the exports, and
# every Windows has the imports.
set -euo pipefail

here=$(dirname "$0")
# shellcheck source=scripts/binaries.sh
source "$here/../../scripts/binaries.sh"
export LC_ALL=C

{
    exports_of "$1/QueltaCSP.dll" | sed 's/^/exports /'
    imports_of "$1/QueltaCSP.dll" | sed 's/^/imports /'
} | diff "$here/module_lists.txt" -

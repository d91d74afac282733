#!/usr/bin/env bash
# copy_release.sh BUILD FOLDER NCRYPT TESTS: copies the release build's programs and the end-to-end tests into one folder.
set -euo pipefail

rm -rf "${2:?}/bin" "${2:?}/softtoken"
mkdir -p "$2"
cp -r --preserve=timestamps "$1/bin" "$1/softtoken" "$3" "$2"
cp "$4" "$2/bin"

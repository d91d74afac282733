#!/usr/bin/env bash
# Puts the release build's programs and the end-to-end tests into one folder. copy_release.sh BUILD TESTS FOLDER
set -euo pipefail

rm -rf "${3:?}/bin" "${3:?}/softtoken"
mkdir -p "$3"
cp -r --preserve=timestamps "$1/bin" "$1/softtoken" "$3"
cp "$2" "$3/bin"

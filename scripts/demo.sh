#!/usr/bin/env bash
# The main job: build the library and take the zonet tool on its tour, on
# loopback only.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh >/dev/null
cmake --preset default >/dev/null
cmake --build --preset default -j2 --target zonet >/dev/null
zonet=build/default/tools/zonet/zonet

run() {
  printf '\n$ zonet %s\n' "$*"
  "$zonet" "$@" || printf '(exit status %d)\n' "$?"
}

run version

#!/usr/bin/env bash
# The test command. Installs what is needed, builds with warnings as errors,
# builds and runs the package consumer, runs the fuzz targets for a bounded
# time, the whole suite under ASan+UBSan, the thread tests under TSan, and
# last the whole suite of the normal build, whose summary closes the output.
#   FUZZ_SECONDS  total seconds for all fuzz targets, shared out evenly
#                 (default 360; 0 skips fuzzing)
#   ZONET_QUICK=1 only the normal build and its suite
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
jobs=2
fuzz_seconds=${FUZZ_SECONDS:-360}

step() { printf '\n==== %s\n' "$*"; }

# Runs a command with its output in a log; shows the tail on success and the
# whole log on failure.
logged() {
  local log=$1 lines=$2
  shift 2
  mkdir -p "$(dirname "$log")"
  if "$@" >"$log" 2>&1; then
    tail -n "$lines" "$log"
  else
    cat "$log"
    echo "FAILED: $*" >&2
    exit 1
  fi
}

step "dependencies"
scripts/deps.sh

step "build (warnings are errors)"
cmake --preset ci >/dev/null
cmake --build --preset ci -j"$jobs"

step "API reference (Doxygen, warnings are errors)"
cmake --build --preset ci --target docs

if [ "${ZONET_QUICK:-0}" != 1 ]; then
  step "install the package and build the consumer against it"
  rm -rf build/install build/consumer
  cmake --install build/ci --prefix build/install >/dev/null
  cmake -S tests/consumer -B build/consumer -G Ninja -DCMAKE_PREFIX_PATH="$root/build/install" >/dev/null
  cmake --build build/consumer -j"$jobs"
  LD_LIBRARY_PATH="$root/build/install/lib" build/consumer/consumer
  LD_LIBRARY_PATH="$root/build/install/lib" PKG_CONFIG_PATH="$root/build/install/lib/pkgconfig" \
    sh -c 'c++ -std=c++17 tests/consumer/consumer.cpp $(pkg-config --cflags --libs zonetwork) -o build/consumer/consumer-pc && build/consumer/consumer-pc'

  if [ "$fuzz_seconds" -gt 0 ]; then
    cmake --preset fuzz >/dev/null
    cmake --build --preset fuzz -j"$jobs"
    targets=()
    for target in build/fuzz/fuzz/fuzz_*; do
      [ -x "$target" ] && targets+=("$target")
    done
    # One budget for the whole run, whatever the number of targets; each
    # gets at least a few seconds so that its seeds are all replayed.
    share=$(( fuzz_seconds / ${#targets[@]} ))
    [ "$share" -ge 5 ] || share=5
    step "fuzz targets: ${fuzz_seconds}s in all, ${share}s each for ${#targets[@]} targets"
    # Targets that load libcurl: the library unloads it, and OpenSSL with it,
    # at the process's end, where LeakSanitizer's tracer can crash on their
    # thread-local blocks. Their leak check leaves thread-local roots out (as
    # the curl tests' does, tests/CMakeLists.txt).
    curl_targets=" fuzz_curl_error fuzz_curl_url fuzz_curl_urlencode fuzz_ftp_url fuzz_listing_parsers "
    for target in "${targets[@]}"; do
      name=$(basename "$target")
      lsan=""
      [[ "$curl_targets" == *" $name "* ]] && lsan="use_tls=0"
      corpus="build/fuzz/corpus/$name"
      mkdir -p "$corpus"
      seeds="fuzz/corpus/$name"
      [ -d "$seeds" ] || seeds=""
      echo "-- $name"
      LSAN_OPTIONS="$lsan" logged "build/fuzz/logs/$name.log" 1 \
        "$target" -max_total_time="$share" -rss_limit_mb=2048 "$corpus" $seeds
    done
  fi

  step "whole suite under ASan+UBSan"
  cmake --preset asan >/dev/null
  cmake --build --preset asan -j"$jobs"
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    logged build/asan/ctest.log 4 ctest --preset asan -j"$jobs"

  step "thread tests under TSan"
  cmake --preset tsan >/dev/null
  cmake --build --preset tsan -j"$jobs"
  TSAN_OPTIONS=halt_on_error=1 logged build/tsan/ctest.log 4 ctest --preset tsan
fi

step "whole suite"
ctest --preset ci -j"$jobs"

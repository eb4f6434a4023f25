#!/usr/bin/env bash
# Installs every Debian package that the build, the tests, the benchmarks,
# the fuzz targets and the tool need. Safe to run again: packages already
# there are left alone.
set -euo pipefail

packages=(
  cmake ninja-build g++ pkg-config
  clang-14 libclang-rt-14-dev            # the fuzz targets (libFuzzer) and their sanitizers
  libboost-dev                           # boost::shared_ptr in the exported signatures
  libgtest-dev libgmock-dev libbenchmark-dev
  libcurl4-openssl-dev                   # curl's headers; the library itself is loaded at run time
  iproute2 util-linux                    # network and mount namespaces of the resolver tests
  procps binutils                       # nm, for the test of what the libraries export
  doxygen                                # the API reference (`docs` target), warnings as errors
  iputils-ping                           # the system's ping, beside zonet ping in the benchmarks
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
  echo "deps: all ${#packages[@]} packages present"
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
echo "deps: installing ${missing[*]}"
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"

#!/usr/bin/env bash
# Installs every Debian package that the build, the tests, the benchmarks,
# the fuzz targets and the tool need. Safe to run again: packages already
# there are left alone.
set -euo pipefail

packages=(
  cmake ninja-build g++ pkg-config
  clang-14 libclang-rt-14-dev            # the fuzz targets (libFuzzer) and their sanitizers
  libboost-dev                           # boost::shared_ptr in the exported signatures; Beast and Asio of the HTTP layer
  libssl-dev                             # TLS of the platform HTTP layer
  duktape-dev                            # proxy auto-configuration scripts of CZoHTTP2
  libgtest-dev libgmock-dev libbenchmark-dev
  libcurl4-openssl-dev                   # curl's headers; the library itself is loaded at run time
  iproute2 util-linux                    # network and mount namespaces of the resolver tests
  procps binutils                       # nm, for the test of what the libraries export
  doxygen                                # the API reference (`docs` target), warnings as errors
  iputils-ping                           # the system's ping, beside zonet ping in the benchmarks
  curl                                   # the command-line tool: benchmarks side by side, fixture tests
  openssl                                # throwaway certificate authorities of the transfer tests
  python3                                # the scriptable HTTP peer (standard library only)
  nginx                                  # HTTP/HTTPS peer with Basic auth and DAV (the core package has both)
  tinyproxy                              # forward proxy with Basic authentication
  vsftpd                                 # FTP/FTPS peer
  openssh-server openssh-client          # SFTP peer (sshd), ssh-keygen and sftp for its keys and checks
)

# Packages that start a system service on install, with the service's name.
# The tests start their own instances on ports they choose and never use one.
declare -A service_of=([nginx]=nginx [tinyproxy]=tinyproxy [vsftpd]=vsftpd [openssh-server]=ssh)

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

# Keep the packages' services from starting: invoke-rc.d asks policy-rc.d,
# and 101 means "action forbidden". One already there (a container's) is left
# as it is; ours is removed again however the install ends.
policy=/usr/sbin/policy-rc.d
own_policy=0
if [ ! -e "$policy" ]; then
  printf '#!/bin/sh\n# scripts/deps.sh: no service starts while packages install.\nexit 101\n' | $SUDO tee "$policy" >/dev/null
  $SUDO chmod 755 "$policy"
  own_policy=1
fi
cleanup() { if [ "$own_policy" -eq 1 ]; then $SUDO rm -f "$policy"; fi; }
trap cleanup EXIT

$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"

# Should a service this install brought have started all the same (an init
# that ignores policy-rc.d), stop it again. Services of packages that were
# already here are the machine's own business and are left alone.
for p in "${missing[@]}"; do
  s="${service_of[$p]:-}"
  [ -n "$s" ] || continue
  if command -v systemctl >/dev/null 2>&1 && [ -d /run/systemd/system ]; then
    if systemctl is-active --quiet "$s"; then
      echo "deps: stopping the $s service that installing $p started"
      $SUDO systemctl stop "$s" || true
    fi
  elif [ -x "/etc/init.d/$s" ] && "/etc/init.d/$s" status >/dev/null 2>&1; then
    echo "deps: stopping the $s service that installing $p started"
    $SUDO "/etc/init.d/$s" stop >/dev/null 2>&1 || true
  fi
done

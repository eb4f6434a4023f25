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

# Addresses and names: the flat record and the resolver.
run resolve localhost
run resolve localhost --family 4
run resolve ::1 --family 6
run addr 127.0.0.1
run addr ::1
run addr /tmp/zonet-demo.sock

# A connected socket pair over loopback.
run pair

# The address object's CIDR test, and a blacklist loaded from a file.
run cidr 10.1.2.3 10.1.0.0/16
run cidr 10.1.2.3 10.2.0.0/16
run cidr 10.1.2.3 10.2.0.0
blacklist_dir=$(mktemp -d)
printf '10.0.0.1\n2001:db8::7\n/run/peer.sock\n10.0.0.1\n' >"$blacklist_dir/blacklist.txt"
run blacklist "$blacklist_dir/blacklist.txt" --grace 2 --expire 300
rm -rf "$blacklist_dir"

# The machine's adapters: addresses with their companions, hardware
# addresses (no reverse names: those would ask the network).
run ifaces
run ifaces --pairs --macs

# Stacks, bindable addresses and timed accepts.
run stacks
run bindable 127.0.0.1
run bindable 192.0.2.1
run accept 0 --timeout 1
# A timed accept that a client reaches: the tool prints its port first, and
# the client connects as soon as that line is read.
printf '\n$ zonet accept 0 --timeout 5   (a client connects from bash)\n'
coproc ACCEPT { "$zonet" accept 0 --timeout 5 2>&1; }
# bash closes the coprocess's descriptor as soon as the tool has ended, which
# may be before its last line is read: read from a copy of our own.
exec {accept_out}<&"${ACCEPT[0]}"
accept_pid=$ACCEPT_PID
read -r accept_line <&"$accept_out"
printf '%s\n' "$accept_line"
accept_port=${accept_line##*:}
bash -c "exec 3<>/dev/tcp/127.0.0.1/$accept_port" || printf '(the client could not connect)\n'
cat <&"$accept_out"
exec {accept_out}<&-
wait "$accept_pid" || printf '(exit status %d)\n' "$?"

# Ping: a raw socket, so only where that is permitted.
if [ "$(id -u)" -eq 0 ]; then
  run ping 127.0.0.1 -c 3
else
  printf '\n$ zonet ping 127.0.0.1 -c 3\n(skipped: a raw ICMP socket needs root or CAP_NET_RAW)\n'
fi

# HTTP over the curl layer, against a web server of the demo's own: nginx
# in one process, on a free loopback port, with its configuration, logs and
# files in a temporary folder, stopped when the demo ends.
if command -v nginx >/dev/null 2>&1 || [ -x /usr/sbin/nginx ]; then
  web=$(mktemp -d)
  mkdir -p "$web/root/files" "$web/logs" "$web/tmp"
  printf 'hello from the demo server\n' >"$web/root/files/hello.txt"
  head -c 8388608 /dev/zero >"$web/root/files/eight-mib.bin"
  web_port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
  cat >"$web/nginx.conf" <<CONF
daemon off;
master_process off;
worker_processes 1;
pid $web/nginx.pid;
error_log $web/logs/error.log;
events { worker_connections 64; }
http {
  access_log $web/logs/access.log;
  client_body_temp_path $web/tmp/body;
  proxy_temp_path $web/tmp/proxy;
  fastcgi_temp_path $web/tmp/fastcgi;
  uwsgi_temp_path $web/tmp/uwsgi;
  scgi_temp_path $web/tmp/scgi;
  default_type application/octet-stream;
  server {
    listen 127.0.0.1:$web_port;
    root $web/root;
    location /files/ { autoindex on; }
    location /upload/ { dav_methods PUT; create_full_put_path on; }
  }
}
CONF
  "$(command -v nginx || echo /usr/sbin/nginx)" -p "$web/" -c "$web/nginx.conf" -e "$web/logs/error.log" &
  web_pid=$!
  trap 'kill "$web_pid" 2>/dev/null; wait "$web_pid" 2>/dev/null; rm -rf "$web"' EXIT
  # Ready when it accepts a connection; a few seconds at most.
  for _ in $(seq 50); do
    bash -c "exec 3<>/dev/tcp/127.0.0.1/$web_port" 2>/dev/null && break
    sleep 0.1
  done
  base="http://127.0.0.1:$web_port"
  run http get "$base/files/hello.txt"
  run http head "$base/files/eight-mib.bin"
  run http get "$base/files/eight-mib.bin" -o "$web/copy.bin"
  cmp -s "$web/root/files/eight-mib.bin" "$web/copy.bin" && printf '(the copy matches the served file)\n'
  run http put "$web/root/files/hello.txt" "$base/upload/hello-again.txt"
  run http get "$base/upload/hello-again.txt"
  run http get "$base/files/missing.txt"
else
  printf '\n$ zonet http get ...\n(skipped: nginx is not installed; scripts/deps.sh installs it)\n'
fi

# FTP: a listing and a download from a vsftpd of the demo's own, anonymous
# and read-only, on a free loopback port (needs root, vsftpd and the ftp
# account that its package makes).
if [ "$(id -u)" -eq 0 ] && command -v vsftpd >/dev/null 2>&1 && [ -d "$(getent passwd ftp | cut -d: -f6)" ]; then
  ftp_dir=$(mktemp -d)
  chmod 755 "$ftp_dir"
  mkdir -p "$ftp_dir/root/pub" "$ftp_dir/empty"
  printf 'hello from the demo vsftpd\n' >"$ftp_dir/root/pub/hello.txt"
  ftp_port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
  cat >"$ftp_dir/vsftpd.conf" <<CONF
listen=YES
listen_ipv6=NO
listen_address=127.0.0.1
listen_port=$ftp_port
background=NO
seccomp_sandbox=NO
isolate=NO
isolate_network=NO
secure_chroot_dir=$ftp_dir/empty
anonymous_enable=YES
no_anon_password=YES
ftp_username=ftp
anon_root=$ftp_dir/root
local_enable=NO
write_enable=NO
vsftpd_log_file=$ftp_dir/vsftpd.log
CONF
  vsftpd "$ftp_dir/vsftpd.conf" &
  ftp_pid=$!
  for _ in $(seq 100); do
    (exec 3<>"/dev/tcp/127.0.0.1/$ftp_port") 2>/dev/null && break
    sleep 0.05
  done
  run ftp ls "ftp://127.0.0.1:$ftp_port/pub"
  run ftp get "ftp://127.0.0.1:$ftp_port/pub/hello.txt"
  kill "$ftp_pid" 2>/dev/null || true
  wait "$ftp_pid" 2>/dev/null || true
  rm -rf "$ftp_dir"
else
  printf '\n$ zonet ftp ls ftp://127.0.0.1:PORT/pub\n(skipped: a demo vsftpd needs root, vsftpd and its ftp account)\n'
fi

# ZoHTTP against a web server of the demo's own on 127.0.0.1 (python3's
# http.server on a free port): the listing as ZoHTTP reports it, and one file
# fetched into a folder.
if command -v python3 >/dev/null 2>&1; then
  web_dir=$(mktemp -d)
  mkdir -p "$web_dir/www/logs" "$web_dir/out"
  printf 'first\n' >"$web_dir/www/logs/a.log"
  printf 'second\n' >"$web_dir/www/logs/b.log"
  printf '%s\n' 'function FindProxyForURL(url, host) {' \
    '  if (isInNet(host, "127.0.0.0", "255.0.0.0")) return "DIRECT";' \
    '  return "PROXY proxy.example.test:3128; DIRECT";' \
    '}' >"$web_dir/www/proxy.pac"
  python3 -u -m http.server --bind 127.0.0.1 --directory "$web_dir/www" 0 >"$web_dir/server.log" 2>&1 &
  py_pid=$!
  py_port=
  for _ in $(seq 1 200); do
    py_port=$(sed -n 's/.*port \([0-9]*\).*/\1/p' "$web_dir/server.log" | head -n 1)
    [ -n "$py_port" ] && break
    sleep 0.05
  done
  if [ -n "$py_port" ]; then
    run zohttp ls "http://127.0.0.1:$py_port/logs" --jsp
    run zohttp get "http://127.0.0.1:$py_port/logs" b.log --dir "$web_dir/out"
    printf '%s\n' "$(cat "$web_dir/out/logs/b.log")"
    # CZoHTTP2 takes a whole URL; the proxy look-up evaluates a script that
    # the same server serves (the machine's and the user's settings first).
    run http2 get "http://127.0.0.1:$py_port/logs/a.log" "$web_dir/out/a.log"
    printf '%s\n' "$(cat "$web_dir/out/a.log")"
    run proxy http://www.example.test/ --pac "http://127.0.0.1:$py_port/proxy.pac"
    run proxy http://127.0.0.1/ --pac "http://127.0.0.1:$py_port/proxy.pac"
  fi
  kill "$py_pid" 2>/dev/null || true
  wait "$py_pid" 2>/dev/null || true
  rm -rf "$web_dir"
fi

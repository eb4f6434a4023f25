#!/bin/sh
# zonet zohttp against a web server of the script's own on 127.0.0.1
# (python3's http.server on a free port, serving a temporary folder with a
# listing page): ls prints the listing's links as ZoHTTP reports them, get
# fetches a file byte for byte, upload posts a log file (the server refuses
# POST, and a refused upload still counts as sent), and a refused port fails
# with exit status 1 and the layer's number. Exit 77 (skipped) without python3.
#   zonet_zohttp.sh PATH-TO-ZONET
set -u
zonet=$1
command -v python3 >/dev/null 2>&1 || { echo "skipped: python3 is missing"; exit 77; }
tmp=$(mktemp -d)
server=
cleanup() { [ -n "$server" ] && kill "$server" 2>/dev/null; wait 2>/dev/null; rm -rf "$tmp"; }
trap cleanup EXIT
mkdir -p "$tmp/www/pub" "$tmp/out"
printf 'first file\n' > "$tmp/www/pub/alpha.txt"
head -c 300000 /dev/urandom > "$tmp/www/pub/beta.bin"
printf 'log line\n' > "$tmp/app.log"
python3 -u -m http.server --bind 127.0.0.1 --directory "$tmp/www" 0 > "$tmp/server.log" 2>&1 &
server=$!
port=
for _ in $(seq 1 200); do
  port=$(sed -n 's/.*port \([0-9]*\).*/\1/p' "$tmp/server.log" | head -n 1)
  [ -n "$port" ] && break
  sleep 0.05
done
[ -n "$port" ] || { echo "FAIL: the server did not start"; cat "$tmp/server.log"; exit 1; }
base="http://127.0.0.1:$port/pub"
fail() { echo "FAIL: $*"; exit 1; }

# http.server writes lower-case links without a leading slash, in name
# order: the JSP agent finds them, the first link of the page is never
# reported, and the first character of each goes with the scanner's offset.
"$zonet" zohttp ls "$base" --jsp > "$tmp/ls.txt" || fail "ls exited $?"
[ "$(cat "$tmp/ls.txt")" = "eta.bin" ] || { cat "$tmp/ls.txt"; fail "ls: not just eta.bin"; }
# Any other agent looks for upper-case links and finds none.
[ -z "$("$zonet" zohttp ls "$base")" ] || fail "ls with the default agent found links"

"$zonet" zohttp get "$base" beta.bin --dir "$tmp/out" > "$tmp/get.txt" || fail "get exited $?"
# The file lands below the folder under its path on the server.
[ "$(cat "$tmp/get.txt")" = "$tmp/out/pub/beta.bin" ] || fail "get printed $(cat "$tmp/get.txt")"
cmp -s "$tmp/www/pub/beta.bin" "$tmp/out/pub/beta.bin" || fail "get: the file differs"

"$zonet" zohttp upload "$base" "$tmp/app.log" --tkid T1 > "$tmp/up.txt" || fail "upload exited $?"
grep -q '"POST /pub/upload.asp HTTP/1.1"' "$tmp/server.log" || { cat "$tmp/server.log"; fail "upload: no POST"; }

closed=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
"$zonet" zohttp get "http://127.0.0.1:$closed/" x.txt --dir "$tmp/out" 2> "$tmp/err.txt"
status=$?
[ "$status" = 1 ] || fail "get from a closed port exited $status"
grep -q '12029' "$tmp/err.txt" || { cat "$tmp/err.txt"; fail "no 12029 in the error"; }
[ ! -e "$tmp/out/x.txt" ] || fail "the failed download left its file"
echo "ok"

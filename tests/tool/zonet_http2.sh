#!/bin/sh
# zonet http2 and zonet proxy against a web server of the script's own on
# 127.0.0.1 (python3, a free port): get fetches a file byte for byte, put
# sends one that the server stores, a missing file is a failure with exit
# status 1, and proxy prints the answer of a script that the server serves.
# Exit 77 (skipped) without python3.
#   zonet_http2.sh PATH-TO-ZONET
set -u
zonet=$1
command -v python3 >/dev/null 2>&1 || { echo "skipped: python3 is missing"; exit 77; }
tmp=$(mktemp -d)
server=
cleanup() { [ -n "$server" ] && kill "$server" 2>/dev/null; wait 2>/dev/null; rm -rf "$tmp"; }
trap cleanup EXIT
mkdir -p "$tmp/www"
head -c 200000 /dev/urandom > "$tmp/www/data.bin"
printf 'function FindProxyForURL(url, host) { return dnsDomainIs(host, ".example.test") ? "PROXY p.test:3128; DIRECT" : "DIRECT"; }\n' > "$tmp/www/proxy.pac"
printf 'uploaded text\n' > "$tmp/up.txt"
cat > "$tmp/server.py" <<'PY'
import http.server, os, sys
root = sys.argv[1]
class H(http.server.SimpleHTTPRequestHandler):
    def __init__(self, *a, **k):
        super().__init__(*a, directory=root, **k)
    def do_PUT(self):
        n = int(self.headers.get('Content-Length', '0'))
        data = self.rfile.read(n)
        with open(os.path.join(root, os.path.basename(self.path)), 'wb') as f:
            f.write(data)
        self.send_response(201)
        self.send_header('Content-Length', '0')
        self.end_headers()
s = http.server.HTTPServer(('127.0.0.1', 0), H)
print('port', s.server_address[1], flush=True)
s.serve_forever()
PY
python3 -u "$tmp/server.py" "$tmp/www" > "$tmp/server.log" 2>&1 &
server=$!
port=
for _ in $(seq 1 200); do
  port=$(sed -n 's/^port \([0-9]*\).*/\1/p' "$tmp/server.log" | head -n 1)
  [ -n "$port" ] && break
  sleep 0.05
done
[ -n "$port" ] || { echo "FAIL: the server did not start"; cat "$tmp/server.log"; exit 1; }
base="http://127.0.0.1:$port"
fail() { echo "FAIL: $*"; exit 1; }

"$zonet" http2 get "$base/data.bin" "$tmp/got.bin" || fail "get exited $?"
cmp -s "$tmp/www/data.bin" "$tmp/got.bin" || fail "get: the file differs"
"$zonet" http2 put "$tmp/up.txt" "$base/stored.txt" || fail "put exited $?"
cmp -s "$tmp/up.txt" "$tmp/www/stored.txt" || fail "put: the stored file differs"
"$zonet" http2 get "$base/missing.txt" "$tmp/missing.txt" 2> "$tmp/err.txt"
[ $? -eq 1 ] || fail "get of a missing file did not exit 1"
grep -q "URL not found" "$tmp/err.txt" || { cat "$tmp/err.txt"; fail "no 'URL not found'"; }
[ ! -e "$tmp/missing.txt" ] || fail "the failed download left its file"
"$zonet" proxy http://www.example.test/ --pac "$base/proxy.pac" > "$tmp/proxy.txt" || fail "proxy exited $?"
grep -q '^url:     http://www.example.test/ proxy "p.test:3128"' "$tmp/proxy.txt" || { cat "$tmp/proxy.txt"; fail "proxy answer"; }
grep -q '^machine: ' "$tmp/proxy.txt" || fail "no machine line"
grep -q '^user: ' "$tmp/proxy.txt" || fail "no user line"
echo "ok"

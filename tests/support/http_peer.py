#!/usr/bin/env python3
"""A scriptable HTTP peer for byte-exact tests (standard library only).

Started by zotest::ScriptedHttpPeer with the folder it prepared:

  http_peer.py DIR READY_FD [--no-continue]

DIR holds script.txt, one line per reply ("DELAY_MS CLOSE STALL CUT"), and the
reply bytes in reply-NNN.bin. The peer listens on 127.0.0.1 on a port the
system picks, writes that port and a newline to descriptor READY_FD and closes
it, then serves until it is killed. Each request (request line, headers, body)
is stored whole as req-NNNNNN.bin (written aside, then renamed, so a reader
never sees half a file) before its reply is sent; the Nth request gets the Nth
reply, and the last reply repeats. accepted.txt counts the connections.
"""

import os
import socket
import sys
import threading
import time


def load_script(folder):
    replies = []
    with open(os.path.join(folder, "script.txt")) as script:
        for index, line in enumerate(script):
            delay, close, stall, cut = (int(x) for x in line.split())
            with open(os.path.join(folder, "reply-%03d.bin" % index), "rb") as raw:
                replies.append((raw.read(), delay, bool(close), bool(stall), cut))
    return replies


class Peer:
    def __init__(self, folder, answer_continue):
        self.folder = folder
        self.replies = load_script(folder)
        self.answer_continue = answer_continue
        self.lock = threading.Lock()
        self.requests = 0
        self.connections = 0

    def store(self, data):
        with self.lock:
            number = self.requests
            self.requests += 1
        name = os.path.join(self.folder, "req-%06d.bin" % number)
        with open(name + ".part", "wb") as out:
            out.write(data)
        os.rename(name + ".part", name)
        return number

    def count_connection(self):
        with self.lock:
            self.connections += 1
            count = self.connections
        name = os.path.join(self.folder, "accepted.txt")
        with open(name + ".part", "w") as out:
            out.write("%d\n" % count)
        os.rename(name + ".part", name)


def read_more(conn, buf):
    chunk = conn.recv(65536)
    if not chunk:
        raise EOFError(buf)
    return buf + chunk


def read_request(conn, buf, peer):
    """One whole request from the connection: (bytes, what is left over).
    EOFError carries what had arrived when the client closed early."""
    while b"\r\n\r\n" not in buf:
        buf = read_more(conn, buf)
    end = buf.index(b"\r\n\r\n") + 4
    head, buf = buf[:end], buf[end:]
    headers = {}
    for line in head.split(b"\r\n")[1:]:
        if b":" in line:
            name, value = line.split(b":", 1)
            headers[name.strip().lower()] = value.strip()
    if peer.answer_continue and headers.get(b"expect", b"").lower() == b"100-continue":
        conn.sendall(b"HTTP/1.1 100 Continue\r\n\r\n")
    body = b""
    try:
        if b"chunked" in headers.get(b"transfer-encoding", b"").lower():
            while True:
                while b"\r\n" not in buf:
                    buf = read_more(conn, buf)
                line_end = buf.index(b"\r\n") + 2
                size = int(buf[:line_end].split(b";")[0].strip() or b"0", 16)
                if size == 0:
                    # Trailers, then the empty line.
                    while True:
                        while b"\r\n" not in buf[line_end:]:
                            buf = read_more(conn, buf)
                        next_end = buf.index(b"\r\n", line_end) + 2
                        empty = next_end - line_end == 2
                        line_end = next_end
                        if empty:
                            break
                    body, buf = body + buf[:line_end], buf[line_end:]
                    break
                need = line_end + size + 2
                while len(buf) < need:
                    buf = read_more(conn, buf)
                body, buf = body + buf[:need], buf[need:]
        elif b"content-length" in headers:
            need = int(headers[b"content-length"])
            while len(buf) < need:
                buf = read_more(conn, buf)
            body, buf = buf[:need], buf[need:]
    except EOFError as early:
        raise EOFError(head + body + early.args[0])
    return head + body, buf


def serve(conn, peer):
    buf = b""
    try:
        while True:
            try:
                request, buf = read_request(conn, buf, peer)
            except EOFError as early:
                if early.args[0]:
                    peer.store(early.args[0])
                return
            number = peer.store(request)
            raw, delay, close, stall, cut = peer.replies[min(number, len(peer.replies) - 1)]
            if stall:
                threading.Event().wait()
            if delay:
                time.sleep(delay / 1000.0)
            conn.sendall(raw[:cut] if cut else raw)
            if close or cut:
                return
    except OSError:
        return
    finally:
        try:
            conn.close()
        except OSError:
            pass


def main():
    folder, ready_fd = sys.argv[1], int(sys.argv[2])
    peer = Peer(folder, "--no-continue" not in sys.argv[3:])
    listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.bind(("127.0.0.1", 0))
    listener.listen(64)
    os.write(ready_fd, b"%d\n" % listener.getsockname()[1])
    os.close(ready_fd)
    while True:
        conn, _ = listener.accept()
        peer.count_connection()
        threading.Thread(target=serve, args=(conn, peer), daemon=True).start()


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""Packs by URL against servers that are rude, and over a file of kept blocks that is damaged.

usage: http_test.py CLIENT ENGINEFS
"""
import http.server
import os
import re
import shutil
import socketserver
import ssl
import subprocess
import sys
import tempfile
import threading
import time

import kit


class Server(http.server.ThreadingHTTPServer):
    """Serves "/MODE/anything"; what a mode does is a method of Answer. Notes the requests of the running test."""
    daemon_threads = True
    request_queue_size = 64

    def __init__(self, pack, changed):
        super().__init__(("127.0.0.1", 0), Answer)
        self.old, self.new = (open(path, "rb").read() for path in (pack, changed))
        self.lock = threading.Lock()
        self.start("")

    def start(self, mode):
        with self.lock:
            self.seen, self.sent = [], 0
        return f"http://127.0.0.1:{self.server_port}/{mode}/x.pak"

    def handle_error(self, request, client_address):
        pass  # clients that hang up are what this is about


class Answer(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *_):
        pass

    def do_GET(self):
        server = self.server
        with server.lock:
            server.seen.append(dict(self.headers))
            self.number = len(server.seen)
        getattr(self, self.path.split("/")[1])()

    def asked(self, data):
        first, last = re.fullmatch(r"bytes=(\d*)-(\d*)", self.headers["Range"]).groups()
        return (int(first), int(last)) if first else (max(0, len(data) - int(last)), len(data) - 1)

    def send(self, status, headers=(), body=b""):
        self.send_response(status)
        for name, value in headers:
            self.send_header(name, value)
        self.end_headers()
        self.put(body)

    def put(self, body):
        for at in range(0, len(body), 1 << 16):
            self.wfile.write(body[at:at + (1 << 16)])
            with self.server.lock:
                self.server.sent += len(body[at:at + (1 << 16)])

    def part(self, data=None, tag='"one"', headers=(), shift=0, longer=0, length=0, total=0):
        """The part that was asked for; a lie by each of the last four."""
        data = data or self.server.old
        first, last = self.asked(data)
        validator = [("ETag", tag)] if tag else []
        self.send(206, [*validator, ("Content-Range", f"bytes {first + shift}-{last + shift}/{len(data) + total}"),
                        ("Content-Length", str(last - first + 1 + longer + length)), *headers],
                  data[first:last + 1] + b"z" * longer)

    def good(self):
        self.part()

    def date(self):
        self.part(tag=None, headers=[("Last-Modified", "Wed, 21 Oct 2015 07:28:00 GMT")])

    def weak(self):
        self.part(tag='W/"one"', headers=[("Last-Modified", "Wed, 21 Oct 2015 07:28:00 GMT")])

    def unmarked(self):
        self.part(tag=None)

    def stale(self):
        if self.number < 6:
            self.part()
        elif self.headers["If-Match"] == '"one"':
            self.send(412, [("Content-Length", "0")])
        else:
            self.part(self.server.new, '"two"')

    def sneaky(self):  # a cache between that ignores conditions
        self.part(*(() if self.number < 6 else (self.server.new, '"two"')))

    def whole(self):
        self.send(200, [("Content-Length", str(1 << 30))], b"x" * (64 << 20))

    def gzip(self):
        self.part(headers=[("Content-Encoding", "gzip")])

    def silent(self):
        time.sleep(5)

    def slow(self):
        data = self.server.old
        first, last = self.asked(data)
        self.send(206, [("ETag", '"one"'), ("Content-Range", f"bytes {first}-{last}/{len(data)}"),
                        ("Content-Length", str(last - first + 1))])
        for _ in range(100):
            self.put(b"x")
            time.sleep(0.05)

    def cut(self):
        data = self.server.old
        first, last = self.asked(data)
        self.send(206, [("ETag", '"one"'), ("Content-Range", f"bytes {first}-{last}/{len(data)}"),
                        ("Content-Length", str(last - first + 1))], data[first:min(last + 1, first + 150000)])
        self.close_connection = True

    def mute(self):
        if self.number % 3 != 1:
            self.part()
        self.close_connection = True

    def errors(self):
        self.send(503, [("Content-Length", "4")], b"busy") if self.number in (1, 2, 5, 6) else self.part()

    def broken(self):
        self.send(500, [("Content-Length", "4")], b"oops")

    def limited(self):
        self.send(429, [("Retry-After", "3600"), ("Content-Length", "0")]) if self.number % 4 == 1 else self.part()

    def obeyed(self):
        self.send(429, [("Retry-After", "1"), ("Content-Length", "0")]) if self.number == 1 else self.part()

    def shifted(self):
        self.part(shift=0 if self.number == 1 else 4096)

    def longer(self):
        self.part(longer=0 if self.number == 1 else 70000)

    def shorter(self):
        self.part(length=0 if self.number == 1 else -1000)

    def grown(self):
        self.part(total=0 if self.number == 1 else 1)

    def garbled(self):
        self.part(headers=[("Content-Range", "bytes */x")])

    def away(self):
        self.send(302, [("Location", "/good/x.pak"), ("Content-Length", "0")])

    def to_file(self):
        self.send(302, [("Location", "file:///etc/passwd"), ("Content-Length", "0")])

    def round(self):
        self.send(302, [("Location", "/round/x.pak"), ("Content-Length", "0")])

    def nowhere(self):
        self.send(302, [("Content-Length", "9")], b"somewhere")

    def missing(self):
        self.send(404, [("Content-Length", "0")])

    def noise(self):
        self.part(b"no pack, but some bytes" * 9000)

    def key(self):
        self.send(401, [("Content-Length", "0")])


def servers(client, server, pack, count):
    all_good = f"{count} good"
    failed = r"The pack \"http://127\.0\.0\.1:\d+/\w+/x\.pak\" cannot be read: {} \(15\)"
    some = r"\d+ good, \d+ failed: The pack .* cannot be read: {}\."
    quick = ("retries=2", "longest=50")
    rows = [
        # mode, what the client says, its options, requests at most
        ("good", all_good, (), None),
        ("date", all_good, (), None),
        ("weak", all_good, (), None),
        ("unmarked", all_good, (), None),
        ("good", all_good, ("first=22",), None),
        ("good", "0 good", ("threads=0",), 1),
        ("good", "0 good", ("threads=0", "first=22"), 2),
        ("stale", some.format("the file was changed on the server"), (), 60),
        ("sneaky", some.format("the file was changed on the server"), (), 60),
        ("whole", failed.format("the server does not serve parts of the file."), (), 1),
        ("gzip", failed.format(r"the server packs the file by itself \(gzip\)."), (), 1),
        ("slow", failed.format(r"the transfer failed \(Timeout was reached\)."), ("retries=0", "stall=1000"), 1),
        ("silent", failed.format(r"the transfer failed \(Timeout was reached\)."), ("retries=0", "stall=1000"), 1),
        ("cut", all_good, ("longest=20", "first=100000"), None),
        ("mute", all_good, ("longest=20",), None),
        ("errors", all_good, ("longest=50",), None),
        ("broken", failed.format("the server answers 500."), quick, 3),
        ("limited", all_good, ("longest=50",), None),
        ("obeyed", all_good, (), None),
        ("shifted", some.format("the server sends another part of the file than was asked for"), quick, None),
        # What was right of these answers is used.
        ("longer", all_good + "|" + some.format("the server sends more than was asked for"), quick, None),
        ("shorter", some.format(r"the (server sends less than it says|transfer failed \(.*\))"), quick, None),
        ("grown", some.format("the file was changed on the server"), quick, None),
        ("garbled", failed.format("the server does not say which part of the file it sends."), (), 1),
        ("away", all_good, (), None),
        ("to_file", failed.format(r"the transfer failed \(.*\)."), (), 1),
        ("round", failed.format(r"the transfer failed \(.*\)."), (), 6),
        ("nowhere", failed.format("the server answers with a redirection that leads nowhere."), (), 1),
        ("missing", failed.format("the server answers 404."), (), 1),
        ("noise", r"The pack source refuses .* \(10\)", (), 1),
    ]
    for mode, wanted, options, most in rows:
        began = time.monotonic()
        url = server.start(mode)
        threads = 0 if "threads=0" in options else 4
        client.run(mode, wanted, url, "", pack, threads, *(option for option in options if "threads" not in option))
        seen = server.seen
        client.check(most is None or len(seen) <= most, f"{mode}: {len(seen)} requests")
        client.check(server.sent < 48 << 20, f"{mode}: {server.sent} bytes were sent")
        client.check(not any("Accept-Encoding" in headers for headers in seen), f"{mode}: Accept-Encoding was sent")
        condition = {"date": "If-Unmodified-Since", "weak": "If-Unmodified-Since", "good": "If-Match"}.get(mode)
        client.check(not condition or all(condition in headers for headers in seen[1:]), f"{mode}: no {condition}")
        waited = time.monotonic() - began
        client.check(waited < 5 and (mode != "obeyed" or waited >= 1), f"{mode}: took {waited:.1f} s")
    secret = server.start("key").replace("http://", "http://user:secret@") + "?signature=secret"
    said = client.run("key", failed.format("the server answers 401."), secret, "", pack, 1)
    client.check("secret" not in said and "Authorization" in server.seen[0], "key: the password is told, or not sent")
    for url in ("ftp://127.0.0.1/x.pak", "file:///etc/passwd", "x.pak", ""):
        client.run(url, r'The pack "\(no URL\)" cannot be read: its URL is none of http or https. \(15\)', url, "", pack, 1)


def kept_blocks(client, server, pack, count, where):
    cache = os.path.join(where, "cache", "deep")
    all_good = f"{count} good"
    url = server.start("good")
    client.run("kept", all_good, url, cache, pack, 4)
    (kept,) = (os.path.join(cache, name) for name in os.listdir(cache))
    client.check(re.fullmatch(r"[0-9a-f]{32}\.blocks", os.path.basename(kept)), f"{kept} is its name")
    with open(kept, "rb") as file:
        good = file.read()
    server.start("good")
    client.run("again", all_good, url, cache, pack, 4)
    client.check(len(server.seen) == 1 and server.sent == 22, f"again: {len(server.seen)} requests, {server.sent} bytes")
    damage = [(f"cut at {size}", good[:size]) for size in (0, 1, 30, 4095, 4099, 8192, len(good) // 2, len(good) - 1)]
    for at in (3, 26, 4090, 4096, 4103, 8192, len(good) // 2, len(good) - 1):
        damage.append((f"changed at {at}", good[:at] + bytes([good[at] ^ 0x55]) + good[at + 1:]))
    damage.append(("zeros", bytes(len(good))))
    damage.append(("no blocks", good[:8192] + bytes(len(good) - 8192)))
    for label, data in damage:
        with open(kept, "wb") as file:
            file.write(data)
        client.run(label, all_good, url, cache, pack, 4)
        with open(kept, "rb") as file:
            client.check(file.read() == good, f"{label}: it was not made good")
    server.start("good")
    both = [client.start(url, cache, pack, 4) for _ in range(3)]
    for process in both:
        client.ended("at once", process, all_good)
    os.remove(kept)
    os.mkdir(kept)
    client.run("a directory in its place", all_good, url, cache, pack, 1)
    client.run("no directory", all_good, url, os.path.join(pack, "x"), pack, 1)


def changed_between_runs(client, server, pack, changed, count, where):
    cache = os.path.join(where, "changing")
    url = server.start("good")
    client.run("before", f"{count} good", url, cache, pack, 4)
    server.old, server.new = server.new, server.old
    client.run("another size", f"{count} good", url, cache, changed, 4)
    server.old, server.new = server.new, server.old


def certificate(client, server, pack, where):
    """One that nobody vouches for is not taken."""
    if not shutil.which("openssl"):
        print("openssl is not available: certificates are not looked at")
        return
    key = os.path.join(where, "key.pem")
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", key, "-out", key + ".crt", "-days", "2",
                    "-subj", "/CN=127.0.0.1"], check=True, capture_output=True)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(key + ".crt", key)
    plain = server.socket
    server.socket = context.wrap_socket(plain, server_side=True)
    url = server.start("good").replace("http:", "https:")
    client.run("certificate", r"The pack .* cannot be read: the transfer failed \(SSL peer certificate .*\). \(15\)", url, "", pack, 1)


def tool(client, enginefs, server, pack, where):
    url = server.start("good")
    command = [enginefs, "--root", where, "--cache", where, "--add", url.replace("//", "//me:secret@")]
    listed = subprocess.run([*command, "cat", "big.bin"], capture_output=True, check=False, env=client.environment)
    client.check(len(listed.stdout) == 1 << 20 and listed.returncode == 0, f"enginefs: {listed.stderr!r}")
    failed = subprocess.run([enginefs, "--root", where, "--add", url.replace("good", "missing"), "ls"], capture_output=True,
                            check=False, env=client.environment)
    client.check(failed.returncode == 1 and b"answers 404" in failed.stderr, f"enginefs: {failed.stderr!r}")


def main(program, enginefs):
    socketserver.TCPServer.allow_reuse_address = True
    where = tempfile.mkdtemp(prefix="enginefs-http-")
    client = kit.Client(program, where)
    pack, changed = (os.path.join(where, name) for name in ("one.pak", "two.pak"))
    count = kit.make_pack(pack, 1)
    kit.make_pack(changed, 2)
    server = Server(pack, changed)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    try:
        servers(client, server, pack, count)
        kept_blocks(client, server, pack, count, where)
        changed_between_runs(client, server, pack, changed, count, where)
        tool(client, enginefs, server, pack, where)
        certificate(client, server, pack, where)
    finally:
        shutil.rmtree(where, ignore_errors=True)
    client.finish()


if __name__ == "__main__":
    main(*map(os.path.abspath, sys.argv[1:3]))

#!/usr/bin/env python3
"""Packs by URL against servers that are rude, and over a file of kept blocks that is damaged.

usage: http_test.py CLIENT ENGINEFS
"""
import http.server
import io
import os
import random
import re
import resource
import subprocess
import sys
import threading
import time
import zipfile

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../support"))
import complaints

DATE = ("Last-Modified", "Wed, 21 Oct 2015 07:28:00 GMT")
GOOD = "99 good"


def make_pack(path, seed):
    """99 entries, stored and deflated, from nothing to a megabyte; a second seed gives other bytes in as many places."""
    chance = random.Random(seed)
    with zipfile.ZipFile(path, "w") as pack:
        for number in range(98):
            size = (0, 1, 70000, 200000, chance.randrange(4000), chance.randrange(60000))[number % 6]
            data = bytes(chance.choices(b"abcdefghijklmnop", k=size))
            method = zipfile.ZIP_STORED if number % 4 == 0 else zipfile.ZIP_DEFLATED
            # The name's length varies with the seed, so that nothing lies where it lay before.
            pack.writestr(f"d{number % 7}/{'x' * seed}{number}.bin", data, method)
        pack.writestr("big.bin", chance.randbytes(1 << 20), zipfile.ZIP_STORED)


class Client(complaints.Complaints):
    """The client, a pack, and one that is as long and full of other bytes."""

    def __init__(self, where, program):
        super().__init__(where)
        self.program = os.path.abspath(program)
        self.pack, self.changed = self.path("one.pak"), self.path("two.pak")
        make_pack(self.pack, 1)
        make_pack(self.changed, 2)
        self.environment = {**os.environ, "no_proxy": "*", "NO_PROXY": "*", "TMPDIR": where}

    def start(self, url, cache="", threads=1, *options, pack=None):
        return subprocess.Popen([self.program, url, cache, pack or self.pack, str(threads), *options], stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, env=self.environment, cwd=self.where, restore_signals=False)

    def ended(self, label, process, wanted):
        """`wanted` is an expression that all of the output matches."""
        try:
            said = process.communicate(timeout=60)[0].decode("utf-8", "replace").strip()
        except subprocess.TimeoutExpired:
            process.kill()
            said = "(no end after 60 seconds)"
        self.runs += 1
        self.check(re.fullmatch(wanted, said, re.S), f"{label}: {said[:300]!r}, wanted {wanted!r}")
        return said

    def run(self, label, wanted, *arguments, **options):
        return self.ended(label, self.start(*arguments, **options), wanted)


class Server(http.server.ThreadingHTTPServer):
    """Serves "/MODE/anything" as the table says. Notes the requests of the running test."""
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
        with self.server.lock:
            self.server.seen.append(dict(self.headers))
            self.number = len(self.server.seen)
        SERVERS[self.path.split("/")[1]][0](self)

    def send(self, status, headers=(), body=b"", length=None):
        self.send_response(status)
        for name, value in [*headers, *([] if length == "chunked" else [("Content-Length", str(length or len(body)))])]:
            self.send_header(name, value)
        self.end_headers()
        for at in range(0, len(body), 1 << 16):
            self.wfile.write(body[at:at + (1 << 16)])
            with self.server.lock:
                self.server.sent += len(body[at:at + (1 << 16)])
        self.close_connection = length is not None

    def part(self, data=None, tag='"one"', headers=(), says="bytes {first}-{last}/{size}", shift=0, most=1 << 40, extra=b"",
             length=None):
        """The part that was asked for, or a lie about it: where it is, and `most` bytes of it, and some behind it."""
        data = self.server.old if data is None else data
        first, last = re.fullmatch(r"bytes=(\d*)-(\d*)", self.headers["Range"]).groups()
        first, last = (int(first), int(last)) if first else (max(0, len(data) - int(last)), len(data) - 1)
        says = says.format(first=first + shift, last=last + shift, size=len(data))
        length = last - first + 1 if length == "whole" else length
        self.send(206, [*([("ETag", tag)] if tag else []), ("Content-Range", says), *headers],
                  data[first:last + 1][:most] + extra, length)

    def later(self, lie):
        """Mounts; what follows is a lie."""
        self.part() if self.number == 1 else lie()

    def chunked(self):
        self.wfile, plain = io.BytesIO(), self.wfile
        self.part(headers=[("Transfer-Encoding", "chunked")], length="chunked")
        headers, _, body = self.wfile.getvalue().partition(b"\r\n\r\n")
        self.wfile = plain
        self.wfile.write(headers + b"\r\n\r\n%x\r\n%s\r\n0\r\n\r\n" % (len(body), body))
        self.close_connection = False


def changes(a):
    a.send(412) if a.headers["If-Match"] == '"one"' else a.part(a.server.new, '"two"')


def fails(reason):
    return r'The pack "http://127\.0\.0\.1:\d+/[\w%]+/x\.pak" cannot be read: ' + reason + r"\. \(15\)"


def later_fails(reason):
    return r"\d+ good, \d+ failed: The pack .* cannot be read: " + reason + r"\."


CHANGED, QUICK = "the file was changed on the server", ("retries=2", "longest=50")
SERVERS = {
    # mode: (what it answers, what the client says, its threads and options, requests at most)
    "good": (Answer.part, GOOD, ("99",), 99),
    "one%20name": (Answer.part, GOOD, (), 99),
    "mounted": (Answer.part, "0 good", ("0",), 1),
    "twice": (Answer.part, "0 good", ("0", "first=22"), 2),
    "date": (lambda a: a.part(tag=None, headers=[DATE]), GOOD, (), 99),
    "weak": (lambda a: a.part(tag='W/"one"', headers=[DATE]), GOOD, (), 99),
    "unmarked": (lambda a: a.part(tag=None), GOOD, (), 99),
    "chunked": (Answer.chunked, GOOD, (), 99),
    "away": (lambda a: a.send(302, [("Location", "/good/x.pak")]), GOOD, (), 99),
    # Failures that pass.
    "cut": (lambda a: a.part(most=150000, length="whole"), GOOD, ("longest=20", "first=100000"), 99),
    "mute": (lambda a: a.part() if a.number % 3 != 1 else setattr(a, "close_connection", True), GOOD, ("longest=20",), 99),
    "errors": (lambda a: a.send(503, body=b"busy") if a.number in (1, 2, 4) else a.part(), GOOD, ("longest=50",), 99),
    "limited": (lambda a: a.send(429, [("Retry-After", "3600")]) if a.number % 4 == 1 else a.part(), GOOD, ("longest=50",), 99),
    "obeyed": (lambda a: a.send(429, [("Retry-After", "1")]) if a.number == 1 else a.part(), GOOD, (), 99),
    # Failures that do not.
    "broken": (lambda a: a.send(500, body=b"oops"), fails("the server answers 500"), QUICK, 3),
    "silent": (lambda a: time.sleep(5), fails(r"the transfer failed \(Timeout was reached\)"), ("retries=0", "stall=1000"), 1),
    "missing": (lambda a: a.send(404), fails("the server answers 404"), (), 1),
    "whole": (lambda a: a.send(200, body=b"x" * (64 << 20)), fails("the server does not serve parts of the file"), (), 1),
    "gzip": (lambda a: a.part(headers=[("Content-Encoding", "gzip")]), fails(r"the server packs the file by itself \(gzip\)"), (), 1),
    "empty": (lambda a: a.send(416, [("Content-Range", "bytes */0")]), fails("the file is empty"), (), 1),
    "to_file": (lambda a: a.send(302, [("Location", "file:///etc/passwd")]), fails(r"the transfer failed \(.*\)"), (), 1),
    "round": (lambda a: a.send(302, [("Location", "/round/x.pak")]), fails(r"the transfer failed \(.*\)"), (), 6),
    "nowhere": (lambda a: a.send(302, body=b"somewhere"), fails("the server answers 302"), (), 1),
    "headless": (lambda a: a.part(a.server.old[70000:]), r"The pack source refuses .* \(10\)", (), 1),
    # Lies.
    "garbled": (lambda a: a.part(says="bytes */x"), fails("the server does not say which part of the file it sends"), (), 1),
    "unbounded": (lambda a: a.part(says="bytes 0-1/99999999999999999999999"), fails("the server does not say which .*"), (), 1),
    "huge": (lambda a: a.part(says=f"bytes {(1 << 50) - (1 << 18)}-{(1 << 50) - 1}/{1 << 50}"), fails("the file is longer than any pack"), (), 1),
    "stale": (lambda a: a.later(lambda: changes(a)), later_fails(CHANGED), (), 60),
    "sneaky": (lambda a: a.later(lambda: a.part(a.server.new, '"two"')), later_fails(CHANGED), (), 60),
    "shrunk": (lambda a: a.later(lambda: a.send(416)), later_fails(CHANGED), QUICK, 99),
    "shifted": (lambda a: a.later(lambda: a.part(shift=4096)), later_fails("the server sends another part .*"), QUICK, 99),
    # What was right of these answers is used.
    "longer": (lambda a: a.later(lambda: a.part(extra=b"z" * 70000)), GOOD + "|" + later_fails("the server sends more .*"), QUICK, 99),
    "shorter": (lambda a: a.later(lambda: a.part(most=1000)), later_fails("the server sends less than it says"), QUICK, 99),
}


def servers(client, server):
    for mode, (_, wanted, options, most) in SERVERS.items():
        began = time.monotonic()
        url = server.start(mode.replace("%20", " "))
        threads, *options = options if options and options[0].isdigit() else (4, *options)
        client.run(mode, wanted, url, "", threads, *options)
        seen, waited = server.seen, time.monotonic() - began
        client.check(len(seen) <= most, f"{mode}: {len(seen)} requests")
        client.check(server.sent < 48 << 20, f"{mode}: {server.sent} bytes were sent")
        client.check(not any("Accept-Encoding" in headers for headers in seen), f"{mode}: Accept-Encoding was sent")
        condition = {"date": "If-Unmodified-Since", "weak": "If-Unmodified-Since", "good": "If-Match"}.get(mode, "Host")
        client.check(all(condition in headers for headers in seen[1:]), f"{mode}: no {condition}")
        client.check(waited < 5 and (mode != "obeyed" or waited >= 1), f"{mode}: took {waited:.1f} s")
    SERVERS["key"] = (lambda a: a.send(401),)
    secret = server.start("key").replace("http://", "http://user:secret@") + "?signature=secret"
    said = client.run("key", fails("the server answers 401"), secret)
    client.check("secret" not in said and "Authorization" in server.seen[0], "key: the password is told, or not sent")
    for url in ("ftp://127.0.0.1/x.pak", "file:///etc/passwd", "x.pak", ""):
        client.run(url, r'The pack "\(no URL\)" cannot be read: its URL is none of http or https. \(15\)', url)


def kept_blocks(client, server):
    cache, url = client.path("cache/deep"), server.start("good")
    client.run("kept", GOOD, url, cache, 4)
    (name,) = os.listdir(cache)
    kept = os.path.join(cache, name)
    client.check(re.fullmatch(r"[0-9a-f]{32}\.blocks", name), f"{name} is its name")
    good = client.read(kept)
    server.start("good")
    client.run("again", GOOD, url, cache, 4)
    client.check(len(server.seen) == 1 and server.sent == 22, f"again: {len(server.seen)} requests, {server.sent} bytes")
    damage = [(f"cut at {size}", good[:size]) for size in (0, 1, 30, 4095, 4099, 8192, len(good) // 2, len(good) - 1)]
    for at in (3, 26, 4090, 4096, 4103, 8192, len(good) // 2, len(good) - 1):
        damage.append((f"changed at {at}", good[:at] + bytes([good[at] ^ 0x55]) + good[at + 1:]))
    damage += [("zeros", bytes(len(good))), ("no blocks", good[:8192] + bytes(len(good) - 8192))]
    for label, data in damage:
        client.write(kept, data)
        client.run(label, GOOD, url, cache, 4)
        client.check(client.read(kept) == good, f"{label}: it was not made good")
    for process in [client.start(url, cache, 4) for _ in range(3)]:
        client.ended("at once", process, GOOD)
    server.old, server.new = server.new, server.old
    client.run("another size", GOOD, url, cache, 4, pack=client.changed)
    server.old, server.new = server.new, server.old
    os.remove(kept)
    limits = resource.getrlimit(resource.RLIMIT_FSIZE)
    resource.setrlimit(resource.RLIMIT_FSIZE, (300000, limits[1]))
    client.run("a full disk", GOOD, url, cache, 4)
    resource.setrlimit(resource.RLIMIT_FSIZE, limits)
    os.remove(kept)
    os.mkdir(kept)
    client.run("a directory in its place", GOOD, url, cache)
    client.run("no directory", GOOD, url, os.path.join(client.pack, "x"))


def tool(client, server, enginefs):
    url = server.start("good")

    def run(*words):
        return subprocess.run([enginefs, "--root", client.where, *words], capture_output=True, check=False, env=client.environment)

    listed = run("--cache", client.where, "--add", url.replace("//", "//me:secret@"), "cat", "big.bin")
    client.check(len(listed.stdout) == 1 << 20 and listed.returncode == 0, f"enginefs: {listed.stderr!r}")
    failed = run("--add", url.replace("good", "missing"), "ls")
    client.check(failed.returncode == 1 and b"answers 404" in failed.stderr, f"enginefs: {failed.stderr!r}")


def rude_servers(client, enginefs):
    server = Server(client.pack, client.changed)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    servers(client, server)
    kept_blocks(client, server)
    tool(client, server, os.path.abspath(enginefs))


def main(program, enginefs):
    complaints.main(lambda where: Client(where, program), lambda client: rude_servers(client, enginefs))


if __name__ == "__main__":
    main(*sys.argv[1:])

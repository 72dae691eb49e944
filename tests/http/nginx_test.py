#!/usr/bin/env python3
"""Packs by URL from nginx, run from a folder of its own: by several readers at once, without ranges, and changed.

usage: nginx_test.py CLIENT DEPS        (nginx is the system's, or the one that scripts/setup has unpacked below DEPS)
"""
import os
import shutil
import socket
import subprocess
import sys
import tempfile
import time

import kit

CONFIGURATION = """
daemon off; master_process off; worker_processes 1; pid {where}/pid; error_log {where}/error.log;
events {{ }}
http {{
    access_log {where}/access.log;
    client_body_temp_path {where}/t; proxy_temp_path {where}/t; fastcgi_temp_path {where}/t; uwsgi_temp_path {where}/t; scgi_temp_path {where}/t;
    gzip on; gzip_types *; gzip_min_length 1;
    server {{
        listen 127.0.0.1:{port};
        root {where}/www;
        location /whole/ {{ alias {where}/www/; max_ranges 0; }}
    }}
}}
"""


def find_nginx(deps):
    candidates = [shutil.which("nginx"), "/usr/sbin/nginx", os.path.join(deps, "nginx/usr/sbin/nginx")]
    return next((path for path in candidates if path and os.access(path, os.X_OK)), None)


def start(nginx, where):
    """nginx in the foreground, and its port; it is asked until it answers."""
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        port = free.getsockname()[1]
    with open(os.path.join(where, "nginx.conf"), "w", encoding="ascii") as out:
        out.write(CONFIGURATION.format(where=where, port=port))
    server = subprocess.Popen([nginx, "-p", where, "-c", os.path.join(where, "nginx.conf"), "-e", os.path.join(where, "error.log")])
    for _ in range(100):
        with socket.socket() as client:
            if client.connect_ex(("127.0.0.1", port)) == 0:
                return server, port
        if server.poll() is not None:
            break
        time.sleep(0.05)
    server.kill()
    sys.exit("nginx did not start")


def requests(where):
    with open(os.path.join(where, "access.log"), encoding="ascii") as log:
        return len(log.readlines())


def run(client, where, port):
    pack, changed, served, cache = (os.path.join(where, name) for name in ("one.pak", "two.pak", "www/x.pak", "cache"))
    count = kit.make_pack(pack, 1, 99)
    kit.make_pack(changed, 2, 99)
    os.mkdir(os.path.join(where, "www"))
    shutil.copyfile(pack, served)
    url = f"http://127.0.0.1:{port}/x.pak"
    client.run("mount", "0 good", url, "", pack, 0)
    client.check(requests(where) == 1, f"mount: {requests(where)} requests")
    client.run("100 entries at once", f"{count} good", url, cache, pack, count)
    before = requests(where)
    client.run("from the cache", f"{count} good", url, cache, pack, 8)
    client.check(requests(where) == before + 1, f"from the cache: {requests(where) - before} requests")
    os.replace(changed, served)
    shutil.copyfile(served, changed)
    client.run("changed between runs", f"{count} good", url, cache, changed, 8)
    client.run("no ranges", r"The pack .* cannot be read: the server does not serve parts of the file. \(15\)",
               url.replace("x.pak", "whole/x.pak"), "", pack, 1)


def main(program, deps):
    nginx = find_nginx(deps)
    if not nginx:
        print("nginx is not available (nginx-light)")
        return
    where = tempfile.mkdtemp(prefix="enginefs-nginx-")
    client = kit.Client(program, where)
    server, port = start(nginx, where)
    try:
        run(client, where, port)
    finally:
        server.terminate()
        server.wait()
        shutil.rmtree(where, ignore_errors=True)
    client.finish()


if __name__ == "__main__":
    main(*map(os.path.abspath, sys.argv[1:3]))

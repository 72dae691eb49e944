#!/usr/bin/env python3
"""Packs by URL from nginx, run from a folder of its own: by several readers at once, without ranges, and changed.

usage: nginx_test.py CLIENT DEPS        (nginx is the system's, or the one that scripts/setup has unpacked below DEPS)
"""
import os
import shutil
import socket
import subprocess
import sys
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
    served, cache = (os.path.join(where, name) for name in ("www/x.pak", "cache"))
    os.mkdir(os.path.join(where, "www"))
    shutil.copyfile(client.pack, served)
    url, all_good = f"http://127.0.0.1:{port}/x.pak", f"{client.count} good"
    client.run("mount", "0 good", url, "", 0)
    client.check(requests(where) == 1, f"mount: {requests(where)} requests")
    client.run("100 entries at once", all_good, url, cache, client.count)
    before = requests(where)
    client.run("from the cache", all_good, url, cache, 8)
    client.check(requests(where) == before + 1, f"from the cache: {requests(where) - before} requests")
    shutil.copyfile(client.changed, served)
    client.run("changed between runs", all_good, url, cache, 8, pack=client.changed)
    client.run("no ranges", r"The pack .* cannot be read: the server does not serve parts of the file. \(15\)",
               url.replace("x.pak", "whole/x.pak"))


def over_nginx(client, deps):
    places = (shutil.which("nginx"), "/usr/sbin/nginx", os.path.join(deps, "nginx/usr/sbin/nginx"))
    nginx = next((path for path in places if path and os.access(path, os.X_OK)), None)
    if not nginx:
        return print("nginx is not available (nginx-light)")
    server, port = start(nginx, client.where)
    try:
        run(client, client.where, port)
    finally:
        server.terminate()
        server.wait()


if __name__ == "__main__":
    kit.main(over_nginx, entries=99)

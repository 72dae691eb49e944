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

import http_test

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


def start(nginx, client):
    """nginx in the foreground, and its port; it is asked until it answers."""
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        port = free.getsockname()[1]
    client.write("nginx.conf", CONFIGURATION.format(where=client.where, port=port).encode())
    server = subprocess.Popen([nginx, "-p", client.where, "-c", client.path("nginx.conf"), "-e", client.path("error.log")])
    for _ in range(100):
        with socket.socket() as caller:
            if caller.connect_ex(("127.0.0.1", port)) == 0:
                return server, port
        if server.poll() is not None:
            break
        time.sleep(0.05)
    server.kill()
    sys.exit("nginx did not start")


def run(client, port):
    def requests():
        return len(client.read("access.log").splitlines())

    os.mkdir(client.path("www"))
    served, cache, url = client.path("www/x.pak"), client.path("cache"), f"http://127.0.0.1:{port}/x.pak"
    shutil.copyfile(client.pack, served)
    client.run("mount", "0 good", url, "", 0)
    client.check(requests() == 1, f"mount: {requests()} requests")
    client.run("100 entries at once", http_test.GOOD, url, cache, 99)
    before = requests()
    client.run("from the cache", http_test.GOOD, url, cache, 8)
    client.check(requests() == before + 1, f"from the cache: {requests() - before} requests")
    shutil.copyfile(client.changed, served)
    client.run("changed between runs", http_test.GOOD, url, cache, 8, pack=client.changed)
    client.run("no ranges", r"The pack .* cannot be read: the server does not serve parts of the file\. \(15\)", url.replace("x.pak", "whole/x.pak"))


def over_nginx(client, deps):
    places = (shutil.which("nginx"), "/usr/sbin/nginx", os.path.join(deps, "nginx/usr/sbin/nginx"))
    nginx = next((path for path in places if path and os.access(path, os.X_OK)), None)
    if not nginx:
        http_test.complaints.skip("nginx (nginx-light)")
    server, port = start(nginx, client)
    try:
        run(client, port)
    finally:
        server.terminate()
        server.wait()


if __name__ == "__main__":
    http_test.complaints.main(lambda where: http_test.Client(where, sys.argv[1]), lambda client: over_nginx(client, sys.argv[2]))

#!/usr/bin/env python3
"""The packages of a build are the same bytes each time, satisfy lintian, install, and serve programs of others.

usage: packages_test.py SOURCE-DIR BUILD-DIR
"""
import filecmp
import glob
import os
import shutil
import subprocess
import sys
import tempfile
import zipfile

IN_ZIP = {"engine_filesystem.dll", "libengine_filesystem.dll.a", "engine_filesystem_c.lib", "enginefs.exe", "filesystem.h",
          "filesystem_c.h", "LICENSE", "NOTICES"}


def run(*command, **options):
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False, text=True, **options)
    if result.returncode != 0:
        sys.exit(f"{' '.join(command)}: status {result.returncode}\n{result.stdout}")
    return result.stdout


def made_twice(source, build, where):
    """The packages, made by two users at two times, who know different zones and let others see different things."""
    first, second = f"{where}/first", f"{where}/second"
    for out, zone, mask in ((first, "UTC", 0o022), (second, "Asia/Tokyo", 0o077)):
        run(f"{source}/packaging/make-packages", build, out, env={**os.environ, "TZ": zone}, umask=mask)
    names = sorted(os.listdir(first))
    same = filecmp.cmpfiles(first, second, names, shallow=False)[0]
    if not same == names == sorted(os.listdir(second)):
        sys.exit(f"not what was made the first time but for {same}")
    return [f"{first}/{name}" for name in names]


def install(packages, root):
    """By dpkg into a root of its own, which has a list of packages but nothing that these need; as a user, unpacked."""
    for folder in ("info", "updates", "triggers"):
        os.makedirs(f"{root}/var/lib/dpkg/{folder}")
    if os.geteuid() == 0:
        open(f"{root}/var/lib/dpkg/status", "w", encoding="ascii").close()
        run("dpkg", f"--root={root}", "--log=/dev/null", "--force-depends", "--install", *packages)
        if run("dpkg", f"--root={root}", "--verify"):
            sys.exit("dpkg does not find what it installed as it was")
    else:
        for one in packages:
            run("dpkg-deb", "-x", one, root)


def check_programs(source, root, where):
    """The tool, and what others build against the installed files alone: in C and C++, by pkg-config and by CMake."""
    libraries = os.path.dirname(glob.glob(f"{root}/usr/lib/*/pkgconfig")[0])
    found = {**os.environ, "LD_LIBRARY_PATH": libraries, "PKG_CONFIG_LIBDIR": libraries + "/pkgconfig"}
    data, build, tool = f"{where}/data", f"{where}/build", f"{root}/usr/bin/enginefs"
    os.mkdir(data)
    for compiler, package_name, example, arguments in (("cc", "engine_filesystem_c", "c_host/main.c", [data]),
                                                       ("c++", "engine_filesystem", "host/main.cpp", [])):
        flags = run("pkg-config", "--cflags", "--libs", package_name, env=found).split()
        run(compiler, f"{source}/examples/{example}", "-o", f"{where}/program", *flags)
        run(f"{where}/program", *arguments, env=found, cwd=where)
    for project, target in (("adapters", "adapter_istream"), ("http", "http_host")):
        run("cmake", "-S", f"{source}/examples/{project}", "-B", f"{build}/{project}", f"-DCMAKE_PREFIX_PATH={root}/usr")
        run("cmake", "--build", f"{build}/{project}", "--target", target)
    run(tool, "pack", f"{where}/data.pak", data, env=found)
    name = run(tool, "list", f"{where}/data.pak", env=found).split()[-1]
    run(f"{build}/adapters/adapter_istream", data, f"{where}/data.pak", name, f"{data}/{name}", env=found)


def main(source, build):
    if not shutil.which("dpkg-gencontrol"):
        print("not available: dpkg-dev")
        sys.exit(77)
    with tempfile.TemporaryDirectory() as where:
        archive, *debs = made_twice(source, build, where)
        if archive.endswith(".zip"):
            missing = IN_ZIP - {os.path.basename(name) for name in zipfile.ZipFile(archive).namelist()}
            sys.exit(f"{archive}: {missing} are missing" if missing else 0)
        if len(debs) != 4:
            sys.exit(f"not four packages: {debs}")
        if shutil.which("lintian"):
            run("lintian", "--fail-on", "error,warning", *debs)
        install(debs, f"{where}/root")
        check_programs(source, f"{where}/root", where)
        run("tar", "-xzf", archive, "-C", where)
        run(glob.glob(f"{where}/engine_filesystem-*/bin/enginefs")[0], "--root", where, "ls")


if __name__ == "__main__":
    main(*map(os.path.abspath, sys.argv[1:]))

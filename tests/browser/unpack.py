"""Programs out of Debian's packages that are unpacked, not installed: none is started on this machine."""
import os
import pathlib
import re
import subprocess


def _needed(packages):
    """The packages and the libraries that they need, and those that these need."""
    only = [f"--no-{kind}" for kind in ("recommends", "suggests", "conflicts", "breaks", "replaces", "enhances")]
    depends = subprocess.run(["apt-cache", "depends", "--recurse", *only, *packages], capture_output=True, text=True, check=True)
    libraries = set(re.findall(r"^(lib\S+)$", depends.stdout, re.M)) - {"libc6"}
    return [*packages, *sorted(libraries)]


def unpacked(build, name, packages):
    """A folder beside the build with the packages in it."""
    folder = pathlib.Path(build).resolve().parent / name
    if not (folder / "done").exists():
        folder.mkdir(parents=True, exist_ok=True)
        subprocess.run(["apt-get", "download", "-qq", *_needed(packages)], cwd=folder, check=True, stderr=subprocess.DEVNULL)
        for package in folder.glob("*.deb"):
            subprocess.run(["dpkg-deb", "-x", package, folder], check=True)
        (folder / "done").touch()
    return folder


def environment(folder):
    """That in which its programs find their libraries."""
    libraries = ":".join(str(path) for path in (folder / "usr/lib").glob("*-linux-gnu"))
    return {**os.environ, "LD_LIBRARY_PATH": libraries}

"""What the package's tests share: paths of the build and the sources, the command-line host,
and a way to run a snippet in a fresh process (the simulated camera takes its scene, and the host
its licence, once per process)."""

import os
import pathlib
import subprocess
import sys

import pytest

SOURCE = pathlib.Path(os.environ.get("KESTRION_SOURCE_DIR", pathlib.Path(__file__).resolve().parents[2]))
BIN = pathlib.Path(os.environ.get("KESTRION_BIN", SOURCE / "build" / "bin"))
MARKERS = SOURCE / "data" / "markers"
SCENES = SOURCE / "simulator" / "scenes"


def kestrion_command(*arguments, env=None, timeout=120):
    """Runs the command-line host; returns the completed process (text output)."""
    return subprocess.run([str(BIN / "kestrion"), *map(str, arguments)], env=env, capture_output=True,
                          text=True, timeout=timeout)


def run_python(code, env_updates=None, timeout=120, cwd=None):
    """Runs `code` with this interpreter in a new process whose environment has `env_updates`
    (None removes a variable); returns the completed process."""
    env = dict(os.environ)
    for key, value in (env_updates or {}).items():
        if value is None:
            env.pop(key, None)
        else:
            env[key] = str(value)
    return subprocess.run([sys.executable, "-c", code], env=env, capture_output=True, text=True,
                          timeout=timeout, cwd=cwd)


@pytest.fixture
def geometry1000():
    return str(MARKERS / "geometry1000.ini")


@pytest.fixture
def geometry1001():
    return str(MARKERS / "geometry1001.ini")

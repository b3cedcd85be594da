"""The scripts of python/examples run as the documentation shows them, on the simulated camera."""

import re
import subprocess
import sys

from conftest import MARKERS, SOURCE

EXAMPLES = SOURCE / "python" / "examples"
G1000, G1001 = str(MARKERS / "geometry1000.ini"), str(MARKERS / "geometry1001.ini")


def example(name, *arguments, cwd=None):
    return subprocess.run([sys.executable, str(EXAMPLES / name), *map(str, arguments)], capture_output=True,
                          text=True, timeout=120, cwd=cwd)


def test_track_tools_prints_every_frame_and_a_clear_error():
    done = example("track_tools.py", "--frames", 20, G1000, G1001)
    assert done.returncode == 0, done.stderr
    lines = done.stdout.splitlines()
    assert lines[0] == "Camera sTk 180 0x53544b3138300001; tools atracsys-1000, atracsys-1001"
    assert len([line for line in lines if re.match(r"\s*\d+  atracsys-1000 ", line)]) == 20
    assert re.fullmatch(r"\d+ frames received, 0 dropped", lines[-1])
    missing = example("track_tools.py", "missing.ini")
    assert missing.returncode == 1
    assert missing.stderr.strip() == "track_tools: geometry file missing.ini: No such file or directory"


def test_record_and_replay_reads_the_session_back(tmp_path):
    output = tmp_path / "session.krec"
    done = example("record_and_replay.py", "--frames", 40, "--output", output, "--plot", tmp_path / "path.png",
                   G1000)
    assert done.returncode == 0, done.stderr
    assert re.search(rf"Recorded \d+ frames to {output} \(0 dropped by the reader\)", done.stdout)
    read = int(re.search(r"Read (\d+) frames back", done.stdout).group(1))
    assert read >= 40
    assert re.search(r"atracsys-1000: \d+ poses over [\d.]+ s, path [\d.]+ mm", done.stdout)
    plotted = (tmp_path / "path.png").exists()
    assert plotted == ("Plotted the paths" in done.stdout)
    assert plotted or "matplotlib is not installed" in done.stdout


def test_scikit_surgery_loop_reads_poses_through_the_interface():
    done = example("scikit_surgery_loop.py", "--frames", 10, "--smoothing", 2, G1000, G1001)
    assert done.returncode == 0, done.stderr
    lines = done.stdout.splitlines()
    assert len(lines) == 10
    assert all("atracsys-1000: " in line and "q=" in line for line in lines)

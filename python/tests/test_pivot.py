"""kestrion.pivot_calibration: the host's solve on poses from Python, its refusals in the
command's words, and a tip found on the simulated camera's pivoting marker."""

import math
import os

import numpy as np
import pytest

import kestrion
from conftest import SOURCE

TIP = np.array([45.0, 35.0, 150.0])     # in the marker's frame
PIVOT = np.array([20.0, 10.0, 850.0])   # in the camera's frame


def rotation(axis, degrees):
    axis = np.asarray(axis, dtype=float) / np.linalg.norm(axis)
    a = math.radians(degrees)
    k = np.array([[0, -axis[2], axis[1]], [axis[2], 0, -axis[0]], [-axis[1], axis[0], 0]])
    return np.eye(3) + math.sin(a) * k + (1 - math.cos(a)) * k @ k


def pivoting(count, cone=30.0):
    """Poses of a marker turning round a cone about a tip held on the pivot point."""
    poses = []
    for i in range(count):
        turn = 2 * math.pi * i / count
        r = rotation([math.cos(turn), math.sin(turn), 0.0], cone)
        pose = np.identity(4)
        pose[:3, :3] = r
        pose[:3, 3] = PIVOT - r @ TIP
        poses.append(pose)
    return poses


def test_exact_poses_give_the_tip_and_untracked_ones_are_skipped():
    poses = pivoting(60)
    poses[5] = np.full((4, 4), np.nan)  # a frame where the tool was not tracked
    result = kestrion.pivot_calibration(poses)
    assert result.solved and result.refusal is None
    np.testing.assert_allclose(result.tip, TIP, atol=1e-6)
    np.testing.assert_allclose(result.pivot, PIVOT, atol=1e-6)
    assert result.rms_mm < 1e-6 and result.used_frames == 59 and result.skipped_frames == 1
    assert result.spread_deg == pytest.approx(60.0, abs=0.5)


def test_poses_that_cannot_give_a_tip_are_refused_with_the_reason():
    few = kestrion.pivot_calibration(pivoting(10))
    assert not few.solved and few.tip is None and few.pivot is None
    assert few.refusal == "10 frames recorded, at least 20 are needed"
    still = kestrion.pivot_calibration([np.identity(4)] * 30)
    assert still.refusal.startswith("the tool never moved: its orientations stay within 0")
    flat = kestrion.pivot_calibration(pivoting(40, cone=5.0))
    assert flat.refusal.startswith("the orientations spread over only 10")
    assert kestrion.pivot_calibration([]).refusal == "0 frames recorded, at least 20 are needed"
    with pytest.raises(ValueError, match=r"poses: a sequence of 4x4 matrices is needed, not an array of shape \(3, 3\)"):
        kestrion.pivot_calibration(np.identity(3))


def test_the_example_finds_the_tip_of_the_simulated_pivoting_marker():
    import re
    import subprocess
    import sys

    env = dict(os.environ, FTK_SIMULATOR_SCENE=str(SOURCE / "tests/data/calibration/pivot.json"))
    done = subprocess.run([sys.executable, str(SOURCE / "python/examples/pivot_calibrate.py"), "--frames", "250",
                           str(SOURCE / "tests/data/trackingstream/geometry1000.ini")],
                          env=env, capture_output=True, text=True, timeout=120)
    assert done.returncode == 0, done.stderr
    tip = [float(v) for v in re.search(r"Tip in the marker's frame: +(\S+) (\S+) (\S+) mm", done.stdout).groups()]
    pivot = [float(v) for v in re.search(r"Pivot point \(camera frame\): (\S+) (\S+) (\S+) mm", done.stdout).groups()]
    np.testing.assert_allclose(tip, TIP, atol=1.0)
    np.testing.assert_allclose(pivot, PIVOT, atol=1.0)

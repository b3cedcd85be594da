"""kestrion.SKSTracker follows scikit-surgery's tracker conventions on the simulated camera's
default scene (markers 1000 and 1001 in view; marker 1002 is not in the scene)."""

import math
import time

import numpy as np
import pytest

import kestrion
from kestrion.sks import _quaternion, _rotation

ABSENT = """[geometry]
count=4
id=1002
[fiducial0]
x=0
y=0
z=0
[fiducial1]
x=40
y=0
z=0
[fiducial2]
x=0
y=70
z=0
[fiducial3]
x=55
y=90
z=0
"""


@pytest.fixture
def absent(tmp_path):
    path = tmp_path / "geometry1002.ini"
    path.write_text(ABSENT)
    return str(path)


def test_get_frame_gives_the_five_lists_with_nan_for_an_unseen_tool(geometry1000, absent):
    tracker = kestrion.SKSTracker({"geometries": [geometry1000, absent]})
    try:
        handles, descriptions = tracker.get_tool_descriptions()
        assert handles == ["atracsys-1000", "atracsys-1002"] and descriptions == [geometry1000, absent]
        with pytest.raises(ValueError, match="start_tracking"):
            tracker.get_frame()
        tracker.start_tracking()
        ports, times, numbers, tracking, qualities = tracker.get_frame()
        assert ports == handles
        assert len(set(times)) == 1 and abs(times[0] - time.time()) < 5.0
        assert len(set(numbers)) == 1 and isinstance(numbers[0], int)
        seen, unseen = tracking
        assert seen.shape == (4, 4) and seen.dtype == np.float64 and not np.isnan(seen).any()
        np.testing.assert_array_equal(seen[3], [0, 0, 0, 1])
        assert unseen.shape == (4, 4) and np.isnan(unseen).all()
        assert 0.9 < qualities[0] <= 1.0 and math.isnan(qualities[1])
        tracker.stop_tracking()
        with pytest.raises(ValueError):
            tracker.get_frame()
    finally:
        tracker.close()


def test_quaternions_and_smoothing(geometry1000, absent):
    tracker = kestrion.SKSTracker({"geometries": [geometry1000, absent], "use quaternions": True,
                                   "smoothing buffer": 3})
    try:
        tracker.start_tracking()
        rows = [tracker.get_frame()[3] for _ in range(4)]
    finally:
        tracker.close()
    seen, unseen = rows[-1]
    assert seen.shape == (1, 7) and unseen.shape == (1, 7) and np.isnan(unseen).all()
    quaternion = seen[0, :4]
    assert quaternion[0] >= 0 and np.linalg.norm(quaternion) == pytest.approx(1.0, abs=1e-9)
    assert 500.0 < seen[0, 6] < 1300.0


def test_quaternion_conversion_round_trips():
    rng = np.random.default_rng(3)
    for _ in range(200):
        q = rng.normal(size=4)
        q /= np.linalg.norm(q)
        q = -q if q[0] < 0 else q
        np.testing.assert_allclose(_quaternion(_rotation(q)), q, atol=1e-12)


def test_the_smoothing_averages_the_tracked_frames_only():
    from kestrion.sks import _Smoothing

    smoothing = _Smoothing(3)
    turn = np.identity(4)
    turn[:3, :3] = _rotation([math.cos(0.1), 0.0, 0.0, math.sin(0.1)])  # 0.2 rad about z
    turn[:3, 3] = [10.0, 20.0, 30.0]
    smoothing.add(np.identity(4), 1.0)
    smoothing.add(None, math.nan)
    smoothing.add(turn, 0.5)
    pose, quality = smoothing.mean()
    assert quality == pytest.approx(0.75)
    np.testing.assert_allclose(pose[:3, 3], [5.0, 10.0, 15.0])
    np.testing.assert_allclose(_quaternion(pose[:3, :3]), [math.cos(0.05), 0, 0, math.sin(0.05)], atol=1e-12)
    for _ in range(3):
        smoothing.add(None, math.nan)
    pose, quality = smoothing.mean()
    assert pose is None and math.isnan(quality)


def test_configuration_errors(geometry1000):
    with pytest.raises(ValueError, match="unknown key\\(s\\) 'smoothing'"):
        kestrion.SKSTracker({"geometries": [geometry1000], "smoothing": 2})
    with pytest.raises(ValueError, match='"geometries" must list'):
        kestrion.SKSTracker({})
    with pytest.raises(ValueError, match='"smoothing buffer" must be a whole number'):
        kestrion.SKSTracker({"geometries": [geometry1000], "smoothing buffer": 0})

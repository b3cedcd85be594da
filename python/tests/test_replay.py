"""A recording replayed through the simulated camera (one frame per fetch) gives kestrion.Tracker
the poses that `kestrion track --csv` writes for the same recording."""

import csv
import os

import numpy as np
import pytest

from conftest import kestrion_command

FRAMES = 80
GEOMETRIES = [":/markers/geometry1000.ini", ":/markers/geometry1001.ini"]


@pytest.fixture(scope="module")
def replay(tmp_path_factory):
    folder = tmp_path_factory.mktemp("replay")
    recording = folder / "session.krec"
    environment = {k: v for k, v in os.environ.items() if not k.startswith("FTK_SIMULATOR")}
    made = kestrion_command("track", "--record", recording, "--frames", FRAMES, env=environment)
    assert made.returncode == 0, made.stderr
    # This process's simulated camera plays the recording: set before its first camera opens.
    os.environ["FTK_SIMULATOR_REPLAY"] = str(recording)
    os.environ["FTK_SIMULATOR_REPLAY_PACE"] = "fetch"
    table = folder / "replayed.csv"
    replayed = kestrion_command("track", "--csv", table, "--frames", FRAMES)
    assert replayed.returncode == 0, replayed.stderr
    with open(table, newline="") as file:
        rows = list(csv.DictReader(file))
    return recording, rows


def test_poses_equal_the_csv_of_the_same_replayed_recording(replay):
    import kestrion

    _, rows = replay
    with kestrion.Tracker(geometries=GEOMETRIES) as tracker:
        frames = list(tracker.frames(max_frames=FRAMES, timeout=5.0))
        assert tracker.dropped == 0
    by_counter = {f.counter: f for f in frames}
    assert len(by_counter) == FRAMES
    compared = 0
    for row in rows:
        tool = by_counter[int(row["device_counter"])].tools[row["instrument"]]
        assert tool.tracked == (row["tracked"] == "1")
        assert tool.quality == pytest.approx(float(row["quality"]), abs=0.5e-4)
        if not tool.tracked:
            assert np.isnan(tool.pose).all()
            continue
        translation = [float(row[k]) for k in ("x_mm", "y_mm", "z_mm")]
        rotation = [[float(row[f"r{r}{c}"]) for c in (1, 2, 3)] for r in (1, 2, 3)]
        np.testing.assert_allclose(tool.pose[:3, 3], translation, rtol=0, atol=0.51e-4)
        np.testing.assert_allclose(tool.pose[:3, :3], rotation, rtol=0, atol=0.51e-7)
        np.testing.assert_array_equal(tool.pose[3], [0, 0, 0, 1])
        assert tool.status == row["status"] and (tool.reason or "") == row["reason"]
        compared += 1
    assert compared >= FRAMES  # both markers, most frames


def test_the_recording_reads_back_with_the_replayed_poses(replay):
    import kestrion

    recording, rows = replay
    tracked = {(int(r["device_counter"]), r["instrument"]): r for r in rows if r["tracked"] == "1"}
    replayed = {int(r["device_counter"]) for r in rows}
    seen = 0
    for frame in kestrion.read_recording(recording):
        if frame.counter not in replayed:  # recorded after the replay's last frame
            continue
        for tool_id, tool in frame.tools.items():
            row = tracked.get((frame.counter, tool_id))
            assert tool.tracked == (row is not None)
            if row is not None:
                np.testing.assert_allclose(tool.pose[:3, 3], [float(row[k]) for k in ("x_mm", "y_mm", "z_mm")],
                                           rtol=0, atol=0.51e-4)
                seen += 1
    assert seen == len(tracked)

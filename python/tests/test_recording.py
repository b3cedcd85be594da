"""kestrion.read_recording: a session recorded by kestrion.Tracker reads back as the frames the
tracker gave, and a file that is not a whole recording is refused with its name."""

import shutil

import numpy as np
import pytest

import kestrion


def record(path, geometries, frames, images=False):
    with kestrion.Tracker(geometries=geometries, fiducials="all", images=images, record=path) as tracker:
        live = list(tracker.frames(max_frames=frames, timeout=5.0))
    return {frame.counter: frame for frame in live}


def test_a_recording_reads_back_as_the_frames_tracked(tmp_path, geometry1000, geometry1001):
    path = tmp_path / "session.krec"
    live = record(path, [geometry1000, geometry1001], 60)
    recording = kestrion.read_recording(path)
    assert recording.camera == "sTk 180" and not recording.with_images
    assert sorted(recording.geometries) == ["atracsys-1000", "atracsys-1001"]
    read = {frame.counter: frame for frame in recording}
    assert not recording.cut_short and recording.dropped == 0
    # Every frame tracked was recorded; the recording goes on until the camera closes.
    assert set(live) <= set(read) and min(read) == min(live)
    for counter, expected in live.items():
        frame = read[counter]
        assert frame.device_us == expected.device_us
        np.testing.assert_array_equal(frame.fiducials, expected.fiducials)
        tools, expected_tools = frame.tools, expected.tools
        assert set(tools) == set(expected_tools)
        for tool_id, tool in tools.items():
            want = expected_tools[tool_id]
            assert tool.tracked == want.tracked
            if want.tracked:
                np.testing.assert_array_equal(tool.pose, want.pose)
                assert tool.quality == pytest.approx(want.quality, abs=1e-12)
                assert tool.registration_error_mm == pytest.approx(want.registration_error_mm, abs=1e-6)
    assert frame.images is None


def test_recorded_images_read_back_unchanged(tmp_path, geometry1000):
    path = tmp_path / "images.krec"
    live = record(path, [geometry1000], 5, images=True)
    read = {frame.counter: frame for frame in kestrion.read_recording(path)}
    assert set(live) <= set(read)
    for counter, frame in live.items():
        for image, expected in zip(read[counter].images, frame.images):
            np.testing.assert_array_equal(image, expected)
    assert all(f.images is None for f in kestrion.read_recording(path, images=False))


def test_a_recording_that_could_not_be_completed_is_an_error_at_close(tmp_path, geometry1000):
    folder = tmp_path / "gone"
    folder.mkdir()
    tracker = kestrion.Tracker(geometries=[geometry1000], record=folder / "session.krec")
    tracker.get_frame(timeout=5.0)
    shutil.rmtree(folder)  # the recorder cannot put its file in place
    with pytest.raises(kestrion.OutputError, match=f"the recording {folder / 'session.krec'} was not completed"):
        tracker.close()
    tracker.close()  # said once


def test_damaged_and_foreign_files_are_refused_with_their_name(tmp_path, geometry1000):
    path = tmp_path / "session.krec"
    record(path, [geometry1000], 30)
    whole = len(list(kestrion.read_recording(path)))
    damaged = tmp_path / "damaged.krec"
    data = bytearray(path.read_bytes())
    data[len(data) // 2] ^= 0xFF
    damaged.write_bytes(bytes(data))
    with pytest.raises(ValueError, match=rf"recording {damaged}: frame \d+: "):
        list(kestrion.read_recording(damaged))

    foreign = tmp_path / "notes.txt"
    foreign.write_text("not a recording\n" * 10)
    with pytest.raises(ValueError, match=rf"recording {foreign}: not a recording"):
        kestrion.read_recording(foreign)
    with pytest.raises(ValueError, match=rf"recording {tmp_path / 'missing.krec'}: "):
        kestrion.read_recording(tmp_path / "missing.krec")

    cut = tmp_path / "cut.krec.part"
    shutil.copyfile(path, cut)
    with open(cut, "r+b") as file:
        file.truncate(cut.stat().st_size // 2)
    cut_recording = kestrion.read_recording(cut)
    frames = list(cut_recording)
    assert cut_recording.cut_short and 0 < len(frames) < whole

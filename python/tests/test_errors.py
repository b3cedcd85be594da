"""The errors of kestrion.Tracker carry the system's own words, decided from the stream's data.
Each case runs in a fresh process: the simulated camera takes its scene, and the host its licence
and plugin folder, once per process."""

import json

from conftest import MARKERS, run_python

TRACK = """
import kestrion
try:
    kestrion.Tracker(geometries={geometries!r}{extra})
    print("OPENED")
except kestrion.Error as error:
    print(type(error).__name__ + ": " + str(error))
"""

MARKER_1000 = {"geometryId": 1000, "fiducials": [[0, 0, 0], [31, 82, 0], [96, -10, 0], [61, 46, 0]],
               "motion": {"type": "static", "position": [0, 0, 800]}}


def scene(tmp_path, faults=(), devices=True):
    path = tmp_path / "scene.json"
    device = {"model": "spryTrack 180", "serial": "0x53544b3138300001", "faults": list(faults)}
    path.write_text(json.dumps({"devices": [device] if devices else [], "markers": [MARKER_1000]}))
    return path


def track(env, geometries=(str(MARKERS / "geometry1000.ini"),), extra=""):
    done = run_python(TRACK.format(geometries=list(geometries), extra=extra), env)
    assert done.returncode == 0, done.stderr
    return done.stdout.strip()


def test_no_camera_and_a_camera_that_is_not_connected(tmp_path):
    assert track({"FTK_SIMULATOR_SCENE": scene(tmp_path, devices=False)}) == "CameraError: no camera found"
    assert track({"FTK_SIMULATOR_SCENE": None}, extra=", serial=0x1234") == (
        "CameraError: camera 0x0000000000001234 is not connected; connected: sTk 180 0x53544b3138300001")


def test_an_unlicensed_or_missing_plugin(tmp_path):
    missing = tmp_path / "missing.lic"
    line = track({"KESTRION_LICENSE": missing})
    assert line.startswith("LicenseError: the tracking stream Atracsys.SpryTrackStream is not available: "
                           f"its plugin is not licensed by the licence {missing}"), line
    empty = tmp_path / "plugins"
    empty.mkdir()
    assert track({"KESTRION_PLUGIN_PATH": empty}) == (
        f"Error: the tracking stream Atracsys.SpryTrackStream is not available: no plugin in {empty} offers it")


def test_a_geometry_the_camera_refuses(tmp_path):
    refusal = {"kind": "geometryRefusal", "geometryId": 1001}
    refused = MARKERS / "geometry1001.ini"
    line = track({"FTK_SIMULATOR_SCENE": scene(tmp_path, [refusal])},
                 geometries=[str(MARKERS / "geometry1000.ini"), str(refused)])
    assert line.startswith(f"GeometryError: the camera refused the geometry of {refused}: "), line


def test_ctrl_c_interrupts_a_wait_for_frames(tmp_path):
    silent = {"kind": "fetchError", "code": "FTK_ERR_READ", "count": -1}
    code = f"""
import os, signal, threading, time
import kestrion
with kestrion.Tracker(geometries=[{str(MARKERS / "geometry1000.ini")!r}]) as tracker:
    threading.Timer(1.0, os.kill, (os.getpid(), signal.SIGINT)).start()
    start = time.monotonic()
    try:
        tracker.get_frame(timeout=None)
    except KeyboardInterrupt:
        print("interrupted after", round(time.monotonic() - start))
"""
    done = run_python(code, {"FTK_SIMULATOR_SCENE": scene(tmp_path, [silent])}, timeout=60)
    assert done.returncode == 0, done.stderr
    assert done.stdout.startswith("interrupted after ") and int(done.stdout.split()[-1]) < 10, done.stdout

"""Kestrion tracking from Python: live tracking through the host's plugins, session recordings,
the simulated camera, pivot calibration, and the scikit-surgery tracker interface.

    import kestrion
    with kestrion.Tracker(geometries=["geometry1000.ini"]) as tracker:
        for frame in tracker.frames(max_frames=100):
            tool = frame.tools["atracsys-1000"]
            if tool.tracked:
                print(frame.counter, tool.pose[:3, 3])

See docs/python.md.
"""

from . import _paths
from ._kestrion import (
    Camera,
    CameraError,
    Error,
    Frame,
    GeometryError,
    LicenseError,
    OutputError,
    PivotResult,
    Recording,
    Tool,
    cameras,
    plugin_folders,
    set_log_level,
)
from . import _kestrion
from .tracker import Tracker
from .recording import read_recording
from .sks import SKSTracker
from .pivot import pivot_calibration

_kestrion.set_installation(_paths.PLUGIN_FOLDER, _paths.LICENSE_FILE)

__all__ = [
    "Camera",
    "CameraError",
    "Error",
    "Frame",
    "GeometryError",
    "LicenseError",
    "OutputError",
    "PivotResult",
    "Recording",
    "SKSTracker",
    "Tool",
    "Tracker",
    "cameras",
    "pivot_calibration",
    "plugin_folders",
    "read_recording",
    "set_log_level",
]

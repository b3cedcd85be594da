"""kestrion.read_recording: the frames of a session recording."""

import os

from . import _kestrion


def read_recording(path, images=True):
    """The frames of a session recording (`kestrion track --record`, Tracker(record=...)), in
    order, as kestrion.Frame objects: poses as recorded, raw fiducials, and the camera images
    when they were recorded (`images=False` skips decoding them). A file that is missing, not a
    recording, too new or damaged raises ValueError naming it; a recording cut short ends at its
    last whole frame (`cut_short` says so)."""
    return _kestrion.Recording(os.fspath(path), images)

"""kestrion.SKSTracker: the scikit-surgery tracker interface over a Kestrion camera.

The field's Python tracking code (scikit-surgery's tracker base class, with NDI and ArUco
trackers behind it) expects start_tracking, stop_tracking, get_frame, get_tool_descriptions and
close, and get_frame returning five lists: port handles, host timestamps, frame numbers, poses
and qualities, with NaN for a tool that is not seen. This class gives exactly that, so such code
runs on a Kestrion camera unchanged.
"""

import math

import numpy as np

from .tracker import Tracker

_KEYS = ("geometries", "serial", "use quaternions", "smoothing buffer")


def _quaternion(rotation):
    """[qw, qx, qy, qz] of a 3x3 rotation, qw >= 0."""
    m = rotation
    trace = m[0, 0] + m[1, 1] + m[2, 2]
    if trace > 0.0:
        s = 2.0 * math.sqrt(1.0 + trace)
        q = [0.25 * s, (m[2, 1] - m[1, 2]) / s, (m[0, 2] - m[2, 0]) / s, (m[1, 0] - m[0, 1]) / s]
    elif m[0, 0] > m[1, 1] and m[0, 0] > m[2, 2]:
        s = 2.0 * math.sqrt(1.0 + m[0, 0] - m[1, 1] - m[2, 2])
        q = [(m[2, 1] - m[1, 2]) / s, 0.25 * s, (m[0, 1] + m[1, 0]) / s, (m[0, 2] + m[2, 0]) / s]
    elif m[1, 1] > m[2, 2]:
        s = 2.0 * math.sqrt(1.0 + m[1, 1] - m[0, 0] - m[2, 2])
        q = [(m[0, 2] - m[2, 0]) / s, (m[0, 1] + m[1, 0]) / s, 0.25 * s, (m[1, 2] + m[2, 1]) / s]
    else:
        s = 2.0 * math.sqrt(1.0 + m[2, 2] - m[0, 0] - m[1, 1])
        q = [(m[1, 0] - m[0, 1]) / s, (m[0, 2] + m[2, 0]) / s, (m[1, 2] + m[2, 1]) / s, 0.25 * s]
    q = np.array(q)
    return -q if q[0] < 0.0 else q


def _rotation(q):
    """The 3x3 rotation of a unit quaternion [qw, qx, qy, qz]."""
    w, x, y, z = q
    return np.array([
        [1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w)],
        [2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w)],
        [2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y)]])


def _mean_quaternion(quaternions):
    """The average orientation of unit quaternions: the principal eigenvector of the sum of
    their outer products (insensitive to the sign of each)."""
    if len(quaternions) == 1:
        return quaternions[0]
    q = np.asarray(quaternions)
    values, vectors = np.linalg.eigh(q.T @ q)
    mean = vectors[:, np.argmax(values)]
    return -mean if mean[0] < 0.0 else mean


class _Smoothing:
    """The last `size` measurements of one tool; the mean of those where it was tracked."""

    def __init__(self, size):
        self.size = size
        self.entries = []  # (pose 4x4 or None, quality)

    def add(self, pose, quality):
        self.entries.append((pose, quality))
        del self.entries[:-self.size]

    def mean(self):
        seen = [(pose, quality) for pose, quality in self.entries if pose is not None]
        if not seen:
            return None, math.nan
        quality = float(np.mean([quality for _, quality in seen]))
        if len(seen) == 1:
            return seen[0][0], quality
        pose = np.identity(4)
        pose[:3, :3] = _rotation(_mean_quaternion([_quaternion(p[:3, :3]) for p, _ in seen]))
        pose[:3, 3] = np.mean([p[:3, 3] for p, _ in seen], axis=0)
        return pose, quality


class SKSTracker:
    """scikit-surgery's tracker interface on a Kestrion camera.

    configuration (dict):
      "geometries"        marker geometry files; their instruments are the port handles
      "serial"            the camera (int or "0x..."); default: the stream's choice
      "use quaternions"   poses as (1, 7) [qw, qx, qy, qz, x, y, z] instead of 4x4 (default False)
      "smoothing buffer"  frames averaged per tool, untracked ones left out (default 1)

    The camera is connected by the constructor (kestrion.CameraError and the other errors of
    kestrion.Tracker when it cannot be); start_tracking() raises ValueError when it is no longer
    ready.
    """

    def __init__(self, configuration):
        configuration = dict(configuration or {})
        unknown = sorted(set(configuration) - set(_KEYS))
        if unknown:
            raise ValueError("configuration: unknown key(s) " + ", ".join(repr(k) for k in unknown) +
                             "; known: " + ", ".join(repr(k) for k in _KEYS))
        geometries = configuration.get("geometries")
        if not geometries or isinstance(geometries, str):
            raise ValueError("configuration: \"geometries\" must list the marker geometry files")
        buffer = configuration.get("smoothing buffer", 1)
        if not isinstance(buffer, int) or buffer < 1:
            raise ValueError("configuration: \"smoothing buffer\" must be a whole number of at least 1, not " +
                             repr(buffer))
        self._quaternions = bool(configuration.get("use quaternions", False))
        self._buffer = buffer
        self._geometries = [str(g) for g in geometries]
        self._tracker = Tracker(geometries=self._geometries, serial=configuration.get("serial"))
        self._handles = list(self._tracker.geometry_instruments)
        self._smoothing = {handle: _Smoothing(buffer) for handle in self._handles}
        self._tracking = False

    def start_tracking(self):
        """Starts handing out frames."""
        if not self._tracker.running:
            raise ValueError("the tracker is not ready: " + (self._tracker.health["last_error"] or
                                                             "the camera is not tracking"))
        self._tracking = True

    def stop_tracking(self):
        """Stops handing out frames (the camera stays connected until close())."""
        self._tracking = False

    def close(self):
        """Stops and disconnects the camera."""
        self._tracking = False
        self._tracker.close()

    def get_tool_descriptions(self):
        """The port handles (instrument ids) and their descriptions (the geometry files)."""
        return list(self._handles), list(self._geometries)

    def get_frame(self):
        """port_handles, time_stamps (host clock, s), frame_numbers, tracking (4x4 or (1, 7)
        arrays; NaN when the tool is not tracked) and tracking_quality (NaN when not tracked),
        one entry per tool, from the newest frame."""
        if not self._tracking:
            raise ValueError("get_frame: call start_tracking() first")
        frame = self._tracker.get_frame()
        tools = frame.tools
        time_stamp = frame.capture_us / 1e6
        frame_number = frame.counter
        handles, times, numbers, tracking, qualities = [], [], [], [], []
        for handle in self._handles:
            tool = tools.get(handle)
            smoothing = self._smoothing[handle]
            if tool is not None and tool.tracked:
                smoothing.add(tool.pose, tool.quality)
            else:
                smoothing.add(None, math.nan)
            pose, quality = smoothing.mean()
            handles.append(handle)
            times.append(time_stamp)
            numbers.append(frame_number)
            qualities.append(quality)
            if self._quaternions:
                row = np.full((1, 7), np.nan)
                if pose is not None:
                    row[0, :4] = _quaternion(pose[:3, :3])
                    row[0, 4:] = pose[:3, 3]
                tracking.append(row)
            else:
                tracking.append(np.full((4, 4), np.nan) if pose is None else pose)
        return handles, times, numbers, tracking, qualities

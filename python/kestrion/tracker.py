"""kestrion.Tracker: a camera opened and tracking, its frames handed over one by one."""

import atexit
import os
import weakref

from . import _kestrion

# Trackers still open when the interpreter ends are closed first, so that their cameras are
# stopped and their recordings completed while the host is still whole.
_open_trackers = weakref.WeakSet()


@atexit.register
def _close_open_trackers():
    for tracker in list(_open_trackers):
        tracker.close()


class Tracker:
    """Opens and starts a tracking camera through the host's tracking stream.

    geometries  marker geometry files (INI), or resources of the plugin (":/markers/...")
    serial      the camera to use (int, or "0x..." text); None: the stream's own choice
    fiducials   raw 3D fiducials in each frame: "none", "marker", "vicinity" or "all"
    images      whether frames carry the two camera images
    reference   an instrument id, a name from `names`, or one of `geometries`: each tool's
                ref_pose is then its pose in that instrument's frame
    names       {instrument id or geometry file: name}: names shown instead of the ids
    record      a session recording to write while tracking (docs/recording-format.md); it
                holds the camera images when `images` is set
    force       replace an existing recording file
    queue_frames  frames kept for a consumer that falls behind (the oldest go first, counted
                in `dropped`); default 4096, or 32 with images

    Errors: kestrion.CameraError (no camera, not opened), kestrion.LicenseError,
    kestrion.GeometryError (unreadable, not loaded, refused by the camera), kestrion.OutputError
    (the recording file), ValueError (a bad argument); each with the system's own message.
    """

    def __init__(self, geometries=(), serial=None, fiducials="none", images=False,
                 reference=None, names=None, record=None, force=False, queue_frames=None):
        if isinstance(geometries, (str, bytes, os.PathLike)):
            raise ValueError("geometries: a list of geometry files, not a single " + type(geometries).__name__)
        if isinstance(serial, int):
            serial = hex(serial)
        self._session = _kestrion._Session(
            geometries=[os.fspath(g) for g in geometries],
            serial="" if serial is None else str(serial),
            fiducials=fiducials,
            images=bool(images),
            reference="" if reference is None else os.fspath(reference),
            names={os.fspath(k): v for k, v in (names or {}).items()},
            record="" if record is None else os.fspath(record),
            force=bool(force),
            queue_frames=0 if queue_frames is None else int(queue_frames))
        _open_trackers.add(self)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()
        return False

    def __del__(self):
        session = getattr(self, "_session", None)
        if session is not None:
            session.close()

    def close(self):
        """Stops and closes the camera; a recording is completed. Frames already queued can still
        be read by frames()."""
        self._session.close()
        _open_trackers.discard(self)

    def get_frame(self, timeout=1.0):
        """The newest frame (older queued ones are skipped), waiting up to `timeout` seconds for
        one that was not returned yet; TimeoutError when none comes."""
        frame = self._session.take(timeout, True)
        if frame is None:
            raise TimeoutError("no frame: the source has no more frames (" +
                               (self.health["end_reason"] or "it ended") + ")")
        return frame

    def frames(self, max_frames=None, timeout=1.0):
        """Every frame in order, as it comes: a generator that ends after `max_frames` frames, or
        when the source ends (a replayed recording); TimeoutError when no frame comes for
        `timeout` seconds (None: wait for ever). Frames a slow consumer lost are counted in
        `dropped`."""
        session = self._session
        count = 0
        while max_frames is None or count < max_frames:
            if session.closed and session.queued == 0:
                return
            frame = session.take(timeout, False)
            if frame is None:
                return
            count += 1
            yield frame

    @property
    def dropped(self):
        """Frames lost because the consumer fell behind by more than the queue holds."""
        return self._session.dropped

    @property
    def received(self):
        """Frames the stream delivered since tracking started."""
        return self._session.received

    @property
    def running(self):
        return self._session.running

    @property
    def health(self):
        """The stream's health: state ("delivering", "not delivering", "ended", "stopped"),
        seconds since the last frame, frames, outages, last error, why it ended."""
        return self._session.health

    @property
    def camera(self):
        """The camera in use (kestrion.Camera)."""
        return self._session.camera

    @property
    def instruments(self):
        """The instrument ids, in the stream's order."""
        return self._session.instruments

    @property
    def geometry_instruments(self):
        """The instrument id of each geometry file, in the order given."""
        return self._session.geometry_instruments

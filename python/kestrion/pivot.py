"""kestrion.pivot_calibration: a tool's tip from poses recorded while it pivots about it."""

import numpy as np

from . import _kestrion


def pivot_calibration(poses):
    """Solves for the tip of a tool pivoted about it (docs/pivot-calibration.md), with the host's
    solve, the one `kestrion pivot` uses.

    poses: a sequence of 4x4 poses of the tool's marker (camera frame, mm), for example
    `tool.pose` of the frames where `tool.tracked` (poses holding NaN are skipped and counted).

    Returns a kestrion.PivotResult: `solved`, `tip` (marker frame) and `pivot` (camera frame) as
    numpy arrays, `rms_mm`, `used_frames`, `rejected_frames`, `skipped_frames`, `spread_deg`; or,
    when the poses cannot give a tip, `solved` False and `refusal`, the reason in the command's
    words ("the tool never moved: ...").
    """
    array = np.asarray(poses if isinstance(poses, np.ndarray) else list(poses), dtype=np.float64)
    if array.size == 0:
        array = np.empty((0, 4, 4))
    if array.ndim != 3 or array.shape[1:] != (4, 4):
        raise ValueError(f"poses: a sequence of 4x4 matrices is needed, not an array of shape {array.shape}")
    return _kestrion._pivot_calibration(array)

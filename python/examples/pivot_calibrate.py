#!/usr/bin/env python3
"""Finds a tool's tip: records the poses of its marker while the tool pivots about its tip in a
divot, then solves with the host's pivot calibration (the one `kestrion pivot` uses).

    python3 pivot_calibrate.py --frames 300 tool.ini

On the simulated camera, a scene with a pivoting marker plays the tool:
    FTK_SIMULATOR_SCENE=tests/data/calibration/pivot.json python3 pivot_calibrate.py \\
        tests/data/trackingstream/geometry1000.ini
"""

import argparse
import sys

import kestrion


def record_poses(geometry, frames):
    """The marker's poses in frames where it is tracked well (quality above 0.8, as the command
    takes them), and how many frames were passed over."""
    poses, passed = [], 0
    with kestrion.Tracker(geometries=[geometry]) as tracker:
        tool_id = tracker.geometry_instruments[0]
        for frame in tracker.frames(timeout=2.0):
            tool = frame.tools[tool_id]
            if tool.tracked and tool.quality > 0.8:
                poses.append(tool.pose)
                if len(poses) % 100 == 0:
                    print(f"Recorded {len(poses)}/{frames} frames", flush=True)
                if len(poses) == frames:
                    break
            else:
                passed += 1
    return tool_id, poses, passed


def main(arguments=None):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("geometry", help="the tool's marker geometry file")
    parser.add_argument("--frames", type=int, default=300, help="poses to record (default 300)")
    options = parser.parse_args(arguments)
    try:
        tool_id, poses, passed = record_poses(options.geometry, options.frames)
    except (kestrion.Error, TimeoutError) as error:
        print(f"pivot_calibrate: {error}", file=sys.stderr)
        return 1
    result = kestrion.pivot_calibration(poses)
    if not result.solved:
        print(f"pivot_calibrate: no tip found: {result.refusal}", file=sys.stderr)
        return 1
    print(f"Tool {tool_id}: {result.used_frames} poses used, {result.rejected_frames} rejected, "
          f"{passed} frames passed over")
    print("Tip in the marker's frame:  {:.3f} {:.3f} {:.3f} mm".format(*result.tip))
    print("Pivot point (camera frame): {:.3f} {:.3f} {:.3f} mm".format(*result.pivot))
    print(f"RMS residual:               {result.rms_mm:.3f} mm")
    print(f"Angular spread:             {result.spread_deg:.1f} degrees")
    return 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Reads poses through the scikit-surgery tracker interface, as code written for other trackers
of the field does.

    python3 scikit_surgery_loop.py --frames 50 geometry1000.ini geometry1001.ini
"""

import argparse
import sys

import numpy as np

import kestrion


def main(arguments=None):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("geometries", nargs="+", help="marker geometry files")
    parser.add_argument("--frames", type=int, default=50, help="frames to read (default 50)")
    parser.add_argument("--smoothing", type=int, default=1, help="frames averaged per tool (default 1)")
    options = parser.parse_args(arguments)
    try:
        tracker = kestrion.SKSTracker({"geometries": options.geometries, "smoothing buffer": options.smoothing})
    except (kestrion.Error, ValueError) as error:
        print(f"scikit_surgery_loop: {error}", file=sys.stderr)
        return 1
    tracker.start_tracking()
    try:
        for _ in range(options.frames):
            ports, times, numbers, poses, qualities = tracker.get_frame()
            cells = [f"{port}: " + ("not seen" if np.isnan(quality) else
                                    f"{pose[0, 3]:.2f} {pose[1, 3]:.2f} {pose[2, 3]:.2f} q={quality:.3f}")
                     for port, pose, quality in zip(ports, poses, qualities)]
            print(f"{numbers[0]:6d} {times[0]:.3f}  " + "  |  ".join(cells))
    finally:
        tracker.stop_tracking()
        tracker.close()
    return 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Prints the position of each tracked tool for a number of frames.

    python3 track_tools.py --frames 100 geometry1000.ini geometry1001.ini

Without a camera, the simulated one serves (FTK_SIMULATOR_SCENE chooses its scene).
"""

import argparse
import sys

import kestrion


def main(arguments=None):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("geometries", nargs="+", help="marker geometry files")
    parser.add_argument("--frames", type=int, default=100, help="frames to show (default 100)")
    parser.add_argument("--serial", help="the camera to use, when several are connected")
    options = parser.parse_args(arguments)
    try:
        tracker = kestrion.Tracker(geometries=options.geometries, serial=options.serial)
    except kestrion.Error as error:
        print(f"track_tools: {error}", file=sys.stderr)
        return 1
    with tracker:
        print(f"Camera {tracker.camera}; tools {', '.join(tracker.geometry_instruments)}")
        for frame in tracker.frames(max_frames=options.frames, timeout=2.0):
            cells = []
            for tool in frame.tools.values():
                x, y, z = tool.pose[:3, 3]
                cells.append(f"{tool.name} {x:8.2f} {y:8.2f} {z:8.2f}" if tool.tracked
                             else f"{tool.name} -- {tool.reason or 'not tracked'}")
            print(f"{frame.counter:6d}  " + "  |  ".join(cells))
        print(f"{tracker.received} frames received, {tracker.dropped} dropped")
    return 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Records a tracking session, reads it back, and plots each tool's path.

    python3 record_and_replay.py --frames 200 --output session.krec geometry1000.ini [--plot path.png]

The recording (docs/recording-format.md) can also be replayed through the simulated camera, as if
the camera were there again: FTK_SIMULATOR_REPLAY=session.krec python3 track_tools.py ...
The plot needs matplotlib (python3-matplotlib); without it the path is summed up in numbers.
"""

import argparse
import sys

import numpy as np

import kestrion


def record(path, geometries, frames):
    with kestrion.Tracker(geometries=geometries, record=path, force=True) as tracker:
        for _ in tracker.frames(max_frames=frames, timeout=2.0):
            pass
        return tracker.received, tracker.dropped


def paths(recording):
    """Each tool's tracked positions (N x 3, mm) and the times they were taken (s)."""
    positions, times = {}, {}
    for frame in recording:
        for tool_id, tool in frame.tools.items():
            if tool.tracked:
                positions.setdefault(tool_id, []).append(tool.pose[:3, 3])
                times.setdefault(tool_id, []).append(frame.capture_us / 1e6)
    return {k: np.array(v) for k, v in positions.items()}, {k: np.array(v) for k, v in times.items()}


def plot(positions, output):
    try:
        import matplotlib
        matplotlib.use("Agg")
        import matplotlib.pyplot as plt
    except ImportError:
        print("matplotlib is not installed (python3-matplotlib): no plot")
        return
    figure = plt.figure()
    axes = figure.add_subplot(projection="3d")
    for tool_id, xyz in positions.items():
        axes.plot(xyz[:, 0], xyz[:, 1], xyz[:, 2], label=tool_id)
    axes.set_xlabel("x [mm]")
    axes.set_ylabel("y [mm]")
    axes.set_zlabel("z [mm]")
    axes.legend()
    figure.savefig(output)
    print(f"Plotted the paths to {output}")


def main(arguments=None):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("geometries", nargs="+", help="marker geometry files")
    parser.add_argument("--output", required=True, help="the recording file to write")
    parser.add_argument("--frames", type=int, default=200, help="frames to record (default 200)")
    parser.add_argument("--plot", help="a PNG file for the paths (needs matplotlib)")
    options = parser.parse_args(arguments)
    try:
        received, dropped = record(options.output, options.geometries, options.frames)
        print(f"Recorded {received} frames to {options.output} ({dropped} dropped by the reader)")
        recording = kestrion.read_recording(options.output, images=False)
        positions, times = paths(recording)
    except (kestrion.Error, ValueError) as error:
        print(f"record_and_replay: {error}", file=sys.stderr)
        return 1
    print(f"Read {recording.frames_read} frames back from {options.output}")
    for tool_id, xyz in positions.items():
        steps = np.linalg.norm(np.diff(xyz, axis=0), axis=1)
        span = times[tool_id][-1] - times[tool_id][0]
        print(f"{tool_id}: {len(xyz)} poses over {span:.2f} s, path {steps.sum():.1f} mm, "
              f"extent {np.ptp(xyz, axis=0).round(1).tolist()} mm")
    if options.plot:
        plot(positions, options.plot)
    return 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""What handing a frame to Python costs, and whether kestrion.Tracker keeps up with a fusionTrack 500
(335 frames a second) on the simulated camera.

    PYTHONPATH=build/python python3 bench/python/frames_bench.py [--seconds 10]

1. Hand-over: frames are let pile up in the queue (0.2 s at a time), then taken one by one with
   next() on Tracker.frames(): each next() finds its frame waiting, so it measures the hand-over
   alone (queue, frame object, generator), not the wait for the camera. Also with the consumer
   reading every tool's pose (frame.tools, tool.pose), the least a consumer does.
2. Pace: frames() consumed as they come for the given time; frames dropped by the queue, frames
   the stream did not fetch (gaps in the camera's counter), and the Python thread's CPU per frame.
"""

import argparse
import os
import pathlib
import statistics
import sys
import time

SOURCE = pathlib.Path(__file__).resolve().parents[2]
os.environ.setdefault("FTK_SIMULATOR_SCENE", str(SOURCE / "simulator/scenes/fusiontrack500-two-markers.json"))

import kestrion  # noqa: E402  (the scene is chosen before the camera opens)

GEOMETRIES = [str(SOURCE / "data/markers/geometry1000.ini"), str(SOURCE / "data/markers/geometry1001.ini")]


def percentiles(values_ns):
    values = sorted(values_ns)

    def at(p):
        return values[min(len(values) - 1, int(p * len(values)))] / 1000.0

    return f"median {statistics.median(values) / 1000.0:6.2f} us, p90 {at(0.9):6.2f} us, p99 {at(0.99):6.2f} us"


def hand_over(seconds, read_tools):
    durations = []
    with kestrion.Tracker(geometries=GEOMETRIES) as tracker:
        frames = tracker.frames(timeout=5.0)
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            time.sleep(0.2)
            while tracker._session.queued > 1:  # one left, so that no next() waits for the camera
                start = time.perf_counter_ns()
                frame = next(frames)
                if read_tools:
                    for tool in frame.tools.values():
                        tool.pose
                durations.append(time.perf_counter_ns() - start)
        dropped = tracker.dropped
    return durations, dropped


def pace(seconds):
    counters = []
    with kestrion.Tracker(geometries=GEOMETRIES) as tracker:
        rate = tracker.camera
        cpu = time.thread_time()
        end = time.monotonic() + seconds
        for frame in tracker.frames(timeout=5.0):
            counters.append(frame.counter)
            for tool in frame.tools.values():
                tool.pose
            if time.monotonic() >= end:
                break
        cpu = time.thread_time() - cpu
        received, dropped = tracker.received, tracker.dropped
    gaps = sum(b - a - 1 for a, b in zip(counters, counters[1:]))
    return rate, len(counters), received, dropped, gaps, cpu


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--seconds", type=float, default=10.0, help="length of each run (default 10)")
    options = parser.parse_args()
    for read_tools in (False, True):
        durations, dropped = hand_over(options.seconds, read_tools)
        what = "next() and every tool's pose" if read_tools else "next() alone"
        print(f"hand-over, {what:29s}: {len(durations):5d} frames, {percentiles(durations)}, dropped {dropped}")
    camera, taken, received, dropped, gaps, cpu = pace(options.seconds)
    print(f"pace on {camera}: {taken} frames in {options.seconds:.0f} s ({taken / options.seconds:.0f} Hz), "
          f"received {received}, dropped by the queue {dropped}, not fetched by the stream {gaps}, "
          f"Python thread CPU {cpu / max(taken, 1) * 1e6:.1f} us per frame")
    return 0


if __name__ == "__main__":
    sys.exit(main())

"""Reduces a generated night of frames on a Dask cluster and prints the time
of each step.

    PYTHONPATH=build/python python3 examples/reduce_night.py            # local cluster of 2 workers
    PYTHONPATH=build/python python3 examples/reduce_night.py --scheduler tcp://host:8786
    PYTHONPATH=build/python python3 examples/reduce_night.py --compare  # also in one process

With --scheduler the frames must be readable under the same paths on every
worker (--dir on a shared or replicated file system).
"""
import argparse
import os
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from night import make_night  # noqa: E402

import qorimg  # noqa: E402,F401
from qorimg import distributed  # noqa: E402


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--scheduler", help="address of a running Dask scheduler (default: a local cluster)")
    parser.add_argument("--workers", type=int, default=2, help="workers of the local cluster")
    parser.add_argument("--dir", help="where the night is written (default: a temporary directory)")
    parser.add_argument("--frames", type=int, default=16)
    parser.add_argument("--width", type=int, default=1024)
    parser.add_argument("--height", type=int, default=768)
    parser.add_argument("--band-rows", type=int, default=128)
    parser.add_argument("--compare", action="store_true", help="also reduce in this process and print the ratio")
    args = parser.parse_args()

    from dask.distributed import Client, LocalCluster

    with tempfile.TemporaryDirectory() as scratch:
        directory = args.dir or scratch
        start = time.perf_counter()
        lights, calibration, _ = make_night(directory, args.frames, args.width, args.height)
        print(f"generate: {time.perf_counter() - start:.2f} s ({args.frames} frames {args.width}x{args.height})")
        settings = distributed.StackSettings(band_rows=args.band_rows)
        cluster = None if args.scheduler else LocalCluster(n_workers=args.workers, threads_per_worker=1,
                                                           processes=True, dashboard_address=None)
        with Client(args.scheduler or cluster) as client:
            client.run(lambda: None)  # workers up before the clock starts
            start = time.perf_counter()
            out = distributed.reduce(client, lights, calibration, settings,
                                     output=os.path.join(directory, "stack.fits"), overwrite=True, log=print)
            cluster_time = time.perf_counter() - start
            print(f"total on the cluster: {cluster_time:.2f} s; failed frames: {len(out['failed'])}")
        if cluster:
            cluster.close()
        if args.compare:
            start = time.perf_counter()
            distributed.reduce_local(lights, calibration, settings, log=lambda m: print("single", m))
            single = time.perf_counter() - start
            print(f"total in one process: {single:.2f} s")
            print(f"ratio e2e.dask{args.workers}.vs.single {cluster_time / single:.3f}")


if __name__ == "__main__":
    main()

"""Photographs per second: in one process (one thread, then two threads, one
analysis each), and on a local Dask cluster of one and of two worker
processes; the per-photograph overhead the cluster adds.

    PYTHONPATH=build/release/python /usr/bin/python3 bench/bench_dask.py [PHOTOS...]

Default photographs: the 40 of scripts/fetch_training_photos.sh. Each figure
is the best of three runs, after a warm-up run on the same setup."""

import glob
import os
import sys
import time
from concurrent.futures import ThreadPoolExecutor

from distributed import Client

from smartcrop.dask import CropOptions, crop_files, crop_partition, local_cluster

OPTIONS = dict(aspect="16:9", count=5)


def best_of(runs, work):
    times = []
    for _ in range(runs):
        start = time.perf_counter()
        work()
        times.append(time.perf_counter() - start)
    return min(times)


def main():
    photos = sys.argv[1:] or sorted(glob.glob(os.path.expanduser(
        "~/.cache/smartcrop/training-photos/photos/*")))
    if not photos:
        sys.exit("no photographs: run scripts/fetch_training_photos.sh")
    n = len(photos)
    options = CropOptions(**OPTIONS)
    rows = []
    crop_partition(photos[:2], options)
    single = best_of(3, lambda: crop_partition(photos, options))
    rows.append(("one process, one thread", single))
    with ThreadPoolExecutor(2) as pool:
        halves = [photos[0::2], photos[1::2]]
        threads = best_of(3, lambda: list(pool.map(lambda part: crop_partition(part, options), halves)))
    rows.append(("one process, two threads", threads))
    for workers in (1, 2):
        with local_cluster(workers) as cluster, Client(cluster) as client:
            crop_files(photos, client=client, **OPTIONS)
            took = best_of(3, lambda: crop_files(photos, client=client, **OPTIONS))
        rows.append((f"local cluster, {workers} worker{'s' if workers > 1 else ''}", took))
    print(f"{n} photographs, {OPTIONS}, {os.cpu_count()} cores")
    for name, took in rows:
        print(f"  {name:28s} {n / took:6.1f} photos/s  ({1000 * took / n:6.1f} ms each)")
    overhead = (rows[2][1] - single) / n
    print(f"  the cluster adds {1000 * overhead:.1f} ms per photograph with one worker")


if __name__ == "__main__":
    main()

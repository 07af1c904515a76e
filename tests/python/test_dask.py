"""Cropping on a cluster: two worker processes give the records one process
gives, and a damaged file is a record of its own."""

import json
import os
import subprocess
import sys

import pytest
from distributed import Client

from smartcrop.dask import CropOptions, crop_files, crop_partition, local_cluster


@pytest.fixture(scope="module")
def client():
    with local_cluster(2) as cluster, Client(cluster) as c:
        yield c


def test_two_workers_give_the_records_of_one_process(client, scenes):
    paths, damaged = scenes
    files = paths[:10] + [damaged] + paths[10:]
    expected = crop_partition(files, CropOptions(aspect=["16:9", "1"], count=3))
    records = crop_files(files, client=client, aspect=["16:9", "1"], count=3, partition_size=4)
    assert records == expected
    assert [r["file"] for r in records] == files
    (failed,) = [r for r in records if "error" in r]
    assert failed == {"file": damaged, "error": failed["error"]}
    assert failed["error"].startswith("the JPEG file is truncated (")
    assert all(len(r["suggestions"]) == 3 for r in records if r is not failed)
    # Two worker processes, with the allocator set up for image buffers.
    assert len(client.nthreads()) == 2
    environments = client.run(lambda: os.environ.get("MALLOC_MMAP_THRESHOLD_"))
    assert list(environments.values()) == [str(32 * 1024 * 1024)] * 2


def test_records_asked_per_ratio_come_grouped(program, scenes):
    paths, _ = scenes
    records = crop_partition(paths[:2], CropOptions(aspect=["16:9", "1"], count=2, per_aspect=True))
    assert [[g["aspect"] for g in r["groups"]] for r in records] == [[1.77778, 1]] * 2
    theirs = program("--per-aspect", "--aspect", "16:9", "--aspect", "1", "--count", "2", *paths[:2])
    assert [[[s["left"] for s in g["suggestions"]] for g in r["groups"]] for r in records] == \
        [[[s["left"] for s in g["suggestions"]] for g in r["groups"]] for r in theirs]


def test_json_lines_are_written_as_partitions_finish(client, scenes, tmp_path):
    paths, damaged = scenes
    out = tmp_path / "crops.jsonl"
    counts = crop_files(paths[:6] + [damaged], client=client, size="100x100", count=1, out=str(out))
    assert counts == {"photos": 7, "errors": 1, "failed": [damaged]}
    lines = [json.loads(line) for line in out.read_text().splitlines()]
    assert sorted(r["file"] for r in lines) == sorted(paths[:6] + [damaged])
    for r in lines:
        if "error" not in r:
            (best,) = r["suggestions"]
            assert (best["width"], best["height"]) == (100, 100)


def test_a_bad_request_fails_before_any_work(client, scenes):
    paths, _ = scenes
    with pytest.raises(ValueError, match="bad aspect ratio"):
        crop_files(paths, client=client, aspect="x:1")
    with pytest.raises(TypeError):
        crop_files(paths, client=client, colour="red")


def test_the_command_runs_a_local_cluster(scenes, tmp_path):
    paths, damaged = scenes
    out = tmp_path / "crops.jsonl"
    folder = os.path.dirname(paths[0])
    done = subprocess.run(
        [sys.executable, "-m", "smartcrop.dask", "--workers", "1", "--aspect", "4:3", "--count", "2",
         os.path.join(folder, "scene0*.jpg"), damaged, str(tmp_path / "missing.jpg"), "--out", str(out)],
        capture_output=True, text=True, timeout=300)
    assert done.returncode == 1, done.stderr
    assert "10 photographs, 2 failed" in done.stderr
    records = {r["file"]: r for r in map(json.loads, out.read_text().splitlines())}
    assert len(records) == 10
    assert records[str(tmp_path / "missing.jpg")]["error"].startswith("[Errno 2] No such file")
    assert records[paths[1]] == crop_partition([paths[1]], CropOptions(aspect=["4:3"], count=2))[0]
    usage = subprocess.run([sys.executable, "-m", "smartcrop.dask", "--count", "0", "x.jpg", "--out",
                            str(out)], capture_output=True, text=True, timeout=60)
    assert usage.returncode == 2 and "at least one suggestion must be asked for" in usage.stderr


def test_output_is_never_lost(client, scenes, tmp_path):
    """An existing --out stays unless overwrite is asked for; a folder or an
    unwritable place is one line before any work; a run that fails leaves
    no temporary behind."""
    paths, _ = scenes
    out = tmp_path / "crops.jsonl"
    out.write_text("theirs\n")
    with pytest.raises(FileExistsError, match="already exists"):
        crop_files(paths[:2], client=client, out=str(out))
    assert out.read_text() == "theirs\n"
    counts = crop_files(paths[:2], client=client, out=str(out), overwrite=True)
    assert counts == {"photos": 2, "errors": 0, "failed": []}
    assert len(out.read_text().splitlines()) == 2
    with pytest.raises(OSError, match="it is a folder"):
        crop_files(paths[:2], client=client, out=str(tmp_path))
    assert sorted(os.listdir(tmp_path)) == ["crops.jsonl"]
    done = subprocess.run([sys.executable, "-m", "smartcrop.dask", paths[0], "--out", str(out)],
                          capture_output=True, text=True, timeout=60)
    assert done.returncode == 1
    assert done.stderr.strip().splitlines() == [
        f"python -m smartcrop.dask: {out} already exists (overwrite=True replaces it)"]
    done = subprocess.run([sys.executable, "-m", "smartcrop.dask", "--scheduler", "tcp://127.0.0.1:9",
                           paths[0], "--out", str(tmp_path / "new.jsonl")],
                          capture_output=True, text=True, timeout=120)
    assert done.returncode == 1
    (line,) = done.stderr.strip().splitlines()
    assert line.startswith("python -m smartcrop.dask: cannot reach the scheduler at tcp://127.0.0.1:9")


def _dies_on_poison(paths, options):
    """A partition task that kills its worker whenever it holds the poison."""
    if any(p.endswith("poison.jpg") for p in paths):
        os._exit(1)
    return crop_partition(paths, options)


def test_a_photograph_that_kills_its_worker_becomes_an_error_record(scenes, monkeypatch):
    import smartcrop.dask as module
    paths, _ = scenes
    poison = os.path.join(os.path.dirname(paths[0]), "poison.jpg")
    monkeypatch.setattr(module, "crop_partition", _dies_on_poison)
    # Workers of its own: the killed ones are restarted while others wait.
    with local_cluster(2) as cluster, Client(cluster) as own:
        records = crop_files(paths[:5] + [poison] + paths[5:8], client=own, partition_size=9, count=1)
    assert [r["file"] for r in records] == paths[:5] + [poison] + paths[5:8]
    (failed,) = [r for r in records if "error" in r]
    assert failed["file"] == poison and "the worker failed on it" in failed["error"]
    assert all(len(r["suggestions"]) == 1 for r in records if r is not failed)

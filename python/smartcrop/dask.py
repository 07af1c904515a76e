"""Cropping many photographs on a Dask cluster.

    import glob
    from distributed import Client
    from smartcrop.dask import crop_files

    if __name__ == "__main__":  # worker processes import this script again
        with Client("tcp://scheduler:8786") as client:
            crop_files(glob.glob("photos/**/*.jpg", recursive=True), client=client,
                       aspect="16:9", out="crops.jsonl")

The photographs travel as paths: every worker must see the same files (a
shared or network file system, or the same copy on each machine). They are
cropped in partitions, one analysis at a time per worker thread; a file
that cannot be read or analysed becomes a record with its ``"error"``
instead of failing the run. Records have the ``smartcrop`` program's JSON
fields, one per photograph.

From a shell: ``python -m smartcrop.dask --scheduler tcp://HOST:8786
'photos/*.jpg' --out crops.jsonl`` (without ``--scheduler``, a local
cluster of this machine's cores).
"""

from __future__ import annotations

import argparse
import glob
import json
import os
import sys
import tempfile
from typing import Any, Dict, Iterable, List, Optional, Sequence, Tuple, Union, overload

from . import _native
from .analysis import answer_options, option_texts
from .records import error_record, photo_record


class CropOptions:
    """What is asked of every photograph: any option of ``smartcrop.suggest``
    (the host layer's request options), checked at once so that a bad
    request fails the call, not every photograph alone."""

    def __init__(self, **options: Any) -> None:
        self._check(option_texts(**options))

    @classmethod
    def from_texts(cls, texts: Sequence[Tuple[str, str]]) -> "CropOptions":
        """From the host layer's (name, text) pairs, as a command line gives them."""
        made = cls.__new__(cls)
        made._check(texts)
        return made

    def _check(self, texts: Sequence[Tuple[str, str]]) -> None:
        self.texts: Tuple[Tuple[str, str], ...] = tuple(texts)
        _native.check_options(list(self.texts))

    def __repr__(self) -> str:
        return f"CropOptions({', '.join(f'{n}={t!r}' if t else n for n, t in self.texts)})"


def crop_file(path: str, options: CropOptions = CropOptions()) -> Dict[str, Any]:
    """One photograph's record; a failure is a record with its ``"error"``."""
    try:
        width, height, answer, faces = answer_options(path, options.texts)
        return photo_record(path, width, height, answer.crops, answer.focal_point,
                            answer.faces if faces else None, ("per-aspect", "") in options.texts)
    except Exception as e:  # every failure of one file is that file's record
        return error_record(path, str(e) or type(e).__name__)


def crop_partition(paths: Iterable[str], options: CropOptions) -> List[Dict[str, Any]]:
    return [crop_file(p, options) for p in paths]


# Dask starts its workers with MALLOC_TRIM_THRESHOLD_ set, which also fixes
# glibc's mmap threshold at 128 KiB: every image-sized buffer of an analysis
# is then mapped and unmapped afresh, a third more time per photograph
# (150 against 110 ms on the training photographs). Buffers up to 32 MiB
# from the heap restore it, while trimming still returns memory.
WORKER_ENVIRONMENT = {"MALLOC_MMAP_THRESHOLD_": 32 * 1024 * 1024}


def local_cluster(n_workers: Optional[int] = None) -> Any:
    """A ``LocalCluster`` of worker processes, one thread each, set up for
    cropping (see ``WORKER_ENVIRONMENT``)."""
    import dask.config
    from distributed import LocalCluster

    environ = dict(dask.config.get("distributed.nanny.pre-spawn-environ", {}))
    environ.update(WORKER_ENVIRONMENT)
    with dask.config.set({"distributed.nanny.pre-spawn-environ": environ}):
        return LocalCluster(n_workers=n_workers, threads_per_worker=1, processes=True,
                            dashboard_address=None)


def _partitions(paths: List[str], size: int) -> List[List[str]]:
    return [paths[i:i + size] for i in range(0, len(paths), size)]


class _Output:
    """The JSON lines file: written beside its name and renamed into place
    at the end, so that a failed or stopped run leaves what was there, and
    never over an existing file unless ``overwrite``. Opened before any
    work, so that an unwritable place fails at once."""

    def __init__(self, path: Union[str, "os.PathLike[str]"], overwrite: bool) -> None:
        self.path = os.fspath(path)
        if os.path.isdir(self.path):
            raise OSError(f"cannot write {self.path}: it is a folder")
        if os.path.lexists(self.path) and not overwrite:
            raise FileExistsError(f"{self.path} already exists (overwrite=True replaces it)")
        folder = os.path.dirname(os.path.abspath(self.path))
        try:
            handle, self.temporary = tempfile.mkstemp(prefix=".smartcrop-", dir=folder)
        except OSError as e:
            raise OSError(f"cannot write {self.path}: {e.strerror}") from None
        self.sink = os.fdopen(handle, "w", encoding="utf-8")

    def write(self, record: Dict[str, Any]) -> None:
        try:
            self.sink.write(json.dumps(record) + "\n")
        except OSError as e:
            raise OSError(f"cannot write {self.path}: {e.strerror}") from None

    def commit(self) -> None:
        try:
            self.sink.close()
            os.replace(self.temporary, self.path)
        except OSError as e:
            raise OSError(f"cannot write {self.path}: {e.strerror}") from None

    def discard(self) -> None:
        self.sink.close()
        if os.path.exists(self.temporary):
            os.unlink(self.temporary)


def _run(client: Any, parts: List[List[str]], options: CropOptions, progress: bool,
         emit: Any) -> None:
    """Crops every partition, calling ``emit(paths, records)`` as each
    finishes. A partition whose task fails (a worker dying on one of its
    photographs, again and again) is split in halves and tried again; a
    single photograph that fails on its own three times becomes an error
    record. (Once is not enough: a finished task's result is lost with a
    worker that dies on the next one, and the scheduler may then give up on
    a healthy photograph.)"""
    from distributed import as_completed, progress as progress_bar

    submitted = {client.submit(crop_partition, part, options, pure=False): part for part in parts}
    if progress and submitted:
        progress_bar(list(submitted))
    pending = as_completed(list(submitted))
    failures: Dict[str, int] = {}

    def again(part: List[str]) -> None:
        retry = client.submit(crop_partition, part, options, pure=False)
        submitted[retry] = part
        pending.add(retry)

    for future in pending:
        part = submitted.pop(future)
        try:
            records = future.result()
        except Exception as e:  # the task failed, not a photograph: try smaller pieces
            if len(part) > 1:
                again(part[:len(part) // 2])
                again(part[len(part) // 2:])
                continue
            failures[part[0]] = failures.get(part[0], 0) + 1
            if failures[part[0]] < 3:
                again(part)
            else:
                emit(part, [error_record(part[0], f"the worker failed on it: {type(e).__name__}: {e}")])
            continue
        finally:
            future.release()
        emit(part, records)


@overload
def crop_files(paths: Iterable[Union[str, "os.PathLike[str]"]], *, client: Any = None,
               partition_size: Optional[int] = None, out: None = None, overwrite: bool = False,
               progress: bool = False, options: Optional[CropOptions] = None,
               **keywords: Any) -> List[Dict[str, Any]]: ...
@overload
def crop_files(paths: Iterable[Union[str, "os.PathLike[str]"]], *, client: Any = None,
               partition_size: Optional[int] = None, out: Union[str, "os.PathLike[str]"],
               overwrite: bool = False, progress: bool = False,
               options: Optional[CropOptions] = None, **keywords: Any) -> Dict[str, Any]: ...
def crop_files(paths: Iterable[Union[str, "os.PathLike[str]"]], *, client: Any = None,
               partition_size: Optional[int] = None, out: Union[None, str, "os.PathLike[str]"] = None,
               overwrite: bool = False, progress: bool = False,
               options: Optional[CropOptions] = None,
               **keywords: Any) -> Union[List[Dict[str, Any]], Dict[str, Any]]:
    """Crops ``paths`` on a ``dask.distributed`` client (by default the
    current one, else a local cluster for the call) and returns the records
    in the order of ``paths``; with ``out``, writes them as JSON lines as
    partitions finish (into place when all are done; an existing file only
    with ``overwrite``) and returns the counts ``{"photos": n, "errors": e,
    "failed": [paths]}``. ``keywords`` are the options of
    ``smartcrop.suggest`` (or give a :class:`CropOptions` as ``options``).
    ``partition_size``: photographs per task (default: about four tasks per
    worker thread, at most 64 photographs each)."""
    from distributed import get_client

    crop_options = options if options is not None else CropOptions(**keywords)
    files = [os.fspath(p) for p in paths]
    if partition_size is not None and partition_size < 1:
        raise ValueError("partition_size must be at least 1")
    sink = _Output(out, overwrite) if out is not None else None
    own_cluster = None
    try:
        if client is None:
            try:
                client = get_client()
            except ValueError:
                from distributed import Client
                own_cluster = local_cluster()
                client = Client(own_cluster)
        if partition_size is None:
            threads = max(1, sum(client.nthreads().values()))
            partition_size = max(1, min(64, -(-len(files) // (4 * threads))))
        parts = _partitions(files, partition_size)
        if sink is None:
            by_file: Dict[str, Dict[str, Any]] = {}
            _run(client, parts, crop_options, progress,
                 lambda part, records: by_file.update(zip(part, records)))
            return [by_file[f] for f in files]
        counts: Dict[str, Any] = {"photos": 0, "errors": 0, "failed": []}
        writer = sink

        def emit(part: List[str], records: List[Dict[str, Any]]) -> None:
            for record in records:
                writer.write(record)
                counts["photos"] += 1
                if "error" in record:
                    counts["errors"] += 1
                    counts["failed"].append(record["file"])
        _run(client, parts, crop_options, progress, emit)
        sink.commit()
        sink = None
        return counts
    finally:
        if sink is not None:
            sink.discard()
        if own_cluster is not None:
            client.close()
            own_cluster.close()


def _expand(patterns: Sequence[str]) -> List[str]:
    files: List[str] = []
    for pattern in patterns:
        matches = sorted(glob.glob(pattern, recursive=True))
        # A name that matches nothing stays, to be reported as missing.
        files.extend([m for m in matches if not os.path.isdir(m)] if matches else [pattern])
    return files


def main(argv: Optional[Sequence[str]] = None) -> int:
    parser = argparse.ArgumentParser(
        prog="python -m smartcrop.dask",
        description="Crops photographs on a Dask cluster and writes one JSON record per photograph.")
    parser.add_argument("patterns", nargs="+", metavar="GLOB", help="photographs (quote patterns; ** descends)")
    parser.add_argument("--out", required=True, help="the JSON lines file to write")
    parser.add_argument("--overwrite", action="store_true", help="replace --out if it exists")
    parser.add_argument("--scheduler", help="the scheduler's address (default: a local cluster)")
    parser.add_argument("--workers", type=int, help="local cluster: worker processes (default: cores)")
    # The request options are the host layer's, as the program's are.
    for name, switch, repeatable, help_text in _native.request_options():
        if switch:
            parser.add_argument(f"--{name}", action="store_true", help=help_text)
        else:
            parser.add_argument(f"--{name}", action="append" if repeatable else "store", help=help_text)
    parser.add_argument("--partition-size", type=int)
    parser.add_argument("--no-progress", action="store_true")
    args = parser.parse_args(argv)

    files = _expand(args.patterns)
    texts: List[Tuple[str, str]] = []
    for name, switch, repeatable, _ in _native.request_options():
        value = getattr(args, name.replace("-", "_"))
        if switch:
            texts.extend([(name, "")] if value else [])
        elif value is not None:
            texts.extend((name, v) for v in (value if repeatable else [value]))
    if args.partition_size is not None and args.partition_size < 1:
        parser.error("--partition-size must be at least 1")
    try:
        options = CropOptions.from_texts(texts)
    except ValueError as e:
        parser.error(str(e))
    from distributed import Client

    prog = "python -m smartcrop.dask"
    cluster = client = None
    try:
        # Before any cluster starts: an existing or unwritable --out fails here.
        _Output(args.out, args.overwrite).discard()
        if args.scheduler:
            try:
                client = Client(args.scheduler, timeout="15s")
            except (OSError, TimeoutError) as e:
                raise OSError(f"cannot reach the scheduler at {args.scheduler}: {e}") from None
        else:
            cluster = local_cluster(args.workers)
            client = Client(cluster)
        check_workers(client)
        counts = crop_files(files, client=client, partition_size=args.partition_size, out=args.out,
                            overwrite=args.overwrite,
                            progress=not args.no_progress and sys.stderr.isatty(), options=options)
    except OSError as e:
        print(f"{prog}: {e}", file=sys.stderr)
        return 1
    finally:
        if client is not None:
            client.close()
        if cluster is not None:
            cluster.close()
    for failed in counts["failed"]:
        print(f"{prog}: failed: {failed}", file=sys.stderr)
    print(f"{counts['photos']} photographs, {counts['errors']} failed; records in {args.out}",
          file=sys.stderr)
    return 1 if counts["errors"] else 0


def check_workers(client: Any) -> None:
    """Every worker can import this package, or an ``OSError`` saying how
    to start them (a worker started by another interpreter, Debian's
    ``/usr/bin/dask`` beside a virtual environment say, cannot)."""
    import importlib
    try:
        client.run(importlib.import_module, "smartcrop.dask")
    except ImportError as e:
        raise OSError(f"the workers cannot import smartcrop ({e}); start them with the "
                      f"interpreter that has it: {sys.executable} -m distributed.cli.dask_worker "
                      "tcp://HOST:8786") from None


if __name__ == "__main__":
    sys.exit(main())

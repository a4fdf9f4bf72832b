# SPDX-License-Identifier: Apache-2.0
"""ipg.batch: a saved pipeline over many DICOM files, here or on a cluster.

    from dask.distributed import Client, LocalCluster
    import ipg.batch
    with LocalCluster(n_workers=2, threads_per_worker=1) as cluster, Client(cluster) as client:
        summary = ipg.batch.run("p.json", ["scans/"], "out", client=client, resume=True)

Each input goes through the same per-file work as `ipg batch` (the program's
own code, bound): the same output tree, NAME.partial files renamed into place,
the same report lines and results table, and --resume's notion of a complete
input, so that either tool can resume what the other started. The inputs are
gathered, and the report and table written, by the calling process; the
workers read the inputs and write the outputs, so every machine must see them
at the same paths (a shared file system).
"""

import collections.abc
import concurrent.futures
import json
import logging
import os
import time
from dataclasses import dataclass, field

from . import _ipg

_log = logging.getLogger("ipg.batch")


class Records(collections.abc.Sequence):
    """The report record (a dict) of each input of a run, in input order; None
    for an input left unrun. Each is read from the report when asked for, so
    that a run of any length, whose records may hold a number per pixel, keeps
    only where they lie."""

    def __init__(self, report, lines):
        self._report, self._lines = report, lines

    def __len__(self):
        return len(self._lines)

    def __getitem__(self, i):
        if isinstance(i, slice):
            return [self[k] for k in range(*i.indices(len(self)))]
        line = self._lines[i]
        return None if line is None else json.loads(_ipg.batch_report_text(self._report, *line))

    def __repr__(self):
        return f"<{len(self)} records of {self._report}>"


@dataclass
class Summary:
    """What a run did. records: the Records of its inputs."""
    inputs: int
    done: int
    failed: int
    skipped: int  # already complete (resume)
    not_run: int
    report: str
    csv: str
    seconds: float
    records: Records = field(repr=False, default=None)


def run(pipeline, inputs, output, client=None, resume=False, *, report=None, csv=None, second=None, roi=None,
        frame=0, png=False, colormap=None, log=False, threads=1, in_flight=None, timeout=None):
    """Runs pipeline on every input, as `ipg batch PIPELINE INPUT... -o OUTPUT` does.

    pipeline: a file written by `ipg run --save-pipeline`, its content as a
    dict, or the list of its steps. inputs: a path or a list of them, each a file, a folder
    (every file below it, hidden ones and output left out) or "@LIST" (a text
    file of inputs). client: a dask.distributed.Client, or any
    concurrent.futures executor (a local pool); None runs the files one after
    the other in this process. resume: skip the inputs that the report says
    are complete. report, csv: default output/report.jsonl and
    output/results.csv. second, roi, frame, png, colormap, log: as the options
    of `ipg batch`. threads: the operators' threads for each file. in_flight:
    inputs submitted ahead of the finished ones (default four per worker
    thread). timeout: seconds to wait for the next input to finish before
    giving up with TimeoutError (the finished ones stay in the report, resume
    goes on). Returns a Summary; ValueError or OSError when the run cannot start.
    """
    start = time.monotonic()
    job = _Job(pipeline, inputs, output, report, csv, _file_options(second, roi, frame, png, colormap, log, threads))
    table = _ipg.ResultsTable(job.csv, len(job.inputs))
    kept = job.previous(table) if resume else []
    writer = _ipg.BatchReport(job.report, kept)
    try:
        job.record_problems(writer, table)
        executor = client if client is not None else _InProcess()
        _Runner(job, executor, writer, table, in_flight or _default_in_flight(executor), timeout).run()
    finally:
        del writer  # the report file closes with its last reference
        table.write()
    return job.summary(len(kept), time.monotonic() - start)


def _file_options(second, roi, frame, png, colormap, log, threads):
    if not isinstance(frame, int) or frame < 0:
        raise ValueError("frame is a frame number from 0")
    if not isinstance(threads, int) or not 1 <= threads <= 1024:
        raise ValueError("threads must be between 1 and 1024")
    return {"second": os.fspath(second) if second else "", "roi": os.fspath(roi) if roi else "", "frame": frame,
            "png": bool(png), "colormap": colormap, "log": bool(log), "threads": threads}


class _Job:
    """The inputs of a run, which have finished, and the counts."""

    def __init__(self, pipeline, inputs, output, report, csv, options):
        self.options = options
        self.pipeline = _prepare(pipeline, options)
        self.output = os.fspath(output)
        self.report = os.fspath(report) if report else os.path.join(self.output, "report.jsonl")
        self.csv = os.fspath(csv) if csv else os.path.join(self.output, "results.csv")
        os.makedirs(self.output, exist_ok=True)
        arguments = [inputs] if isinstance(inputs, (str, os.PathLike)) else list(inputs)
        self.inputs = _ipg.batch_inputs([os.fspath(a) for a in arguments], self.output)
        self.finished = [False] * len(self.inputs)
        self.done = self.failed = 0
        self.cwd = os.getcwd()

    def previous(self, table):
        """The report's lines, (offset, length), of its complete records, which
        stay; their inputs do not run."""
        earlier = _ipg.batch_index_report(self.report)
        kept = []
        for i, (path, _, _) in enumerate(self.inputs):
            line = earlier.get(path)
            if line is None:
                continue
            record = _ipg.BatchRecord(_ipg.batch_report_text(self.report, *line))
            if _ipg.batch_record_complete(record):
                self.finished[i] = True
                table.set(i, record)
                kept.append(line)
        return kept

    def record_problems(self, writer, table):
        """Inputs that cannot run (their output place is taken) get their error line at once."""
        for i, (path, _, problem) in enumerate(self.inputs):
            if problem and not self.finished[i]:
                self.finish(i, _error_record(path, problem), writer, table)

    def todo(self):
        return [i for i, finished in enumerate(self.finished) if not finished]

    def task(self, i):
        path, relative, _ = self.inputs[i]
        return (self.pipeline, path, relative, self.output, self.options, self.cwd)

    def finish(self, i, record, writer, table):
        """record: the input's BatchRecord, read once from the worker's text."""
        writer.append(record)
        table.set(i, record)
        self.finished[i] = True
        self.done += 1
        if record.error is not None:
            self.failed += 1
            _log.warning("%s: %s", record.input, record.error)

    def summary(self, skipped, seconds):
        lines = _ipg.batch_index_report(self.report)
        records = Records(self.report, [lines.get(path) if finished else None
                                        for (path, _, _), finished in zip(self.inputs, self.finished)])
        return Summary(inputs=len(self.inputs), done=self.done - self.failed, failed=self.failed, skipped=skipped,
                       not_run=len(self.todo()), report=self.report, csv=self.csv, seconds=seconds,
                       records=records)


def _prepare(pipeline, options):
    is_path = isinstance(pipeline, (str, os.PathLike))
    if isinstance(pipeline, list):  # the steps alone
        pipeline = {"format": "ipg-pipeline", "version": 1, "steps": pipeline}
    source = os.fspath(pipeline) if is_path else json.dumps(pipeline)
    return _ipg.batch_prepare(source, is_path, bool(options["second"]), options["colormap"], options["png"],
                              options["log"])


class _Runner:
    """Keeps in_flight inputs submitted and records each as it finishes."""

    def __init__(self, job, executor, writer, table, in_flight, timeout):
        self.job, self.executor, self.writer, self.table = job, executor, writer, table
        self.in_flight, self.timeout = max(1, in_flight), timeout
        self.wait = _wait_function(executor)

    def run(self):
        todo = iter(self.job.todo())
        running = {}
        while True:
            for i in todo:
                running[self._submit(self.job.task(i))] = i
                if len(running) >= self.in_flight:
                    break
            if not running:
                return
            try:
                finished, _ = self.wait(list(running), timeout=self.timeout, return_when="FIRST_COMPLETED")
            except TimeoutError:  # dask's wait raises it, concurrent.futures' returns nothing finished
                finished = ()
            if not finished:
                raise TimeoutError(f"no input finished within {self.timeout} s; {len(running)} still running "
                                   "(resume=True goes on)")
            for future in finished:
                i = running.pop(future)
                self.job.finish(i, self._record(future, i), self.writer, self.table)

    def _submit(self, task):
        if _is_dask(self.executor):
            return self.executor.submit(_run_task, task, pure=False)
        return self.executor.submit(_run_task, task)

    def _record(self, future, i):
        """The worker's record, or an error record when the task could not give one
        (a worker that died on it, a lost connection)."""
        try:
            return _ipg.BatchRecord(future.result())
        except Exception as error:  # the run goes on, as after a dead `ipg batch` worker
            return _error_record(self.job.inputs[i][0], "the worker processing it ended abnormally "
                                 f"({type(error).__name__}: {error})")


def _error_record(path, error):
    """The record of an input that did not run."""
    return _ipg.BatchRecord(json.dumps({"input": path, "outputs": [], "results": [], "messages": [], "error": error,
                                        "seconds": 0}))


def _run_task(task):
    """One input on a worker: its record as JSON text. Paths relative to the
    caller's folder are made absolute when the worker runs elsewhere, and the
    record names them as the caller gave them."""
    pipeline, path, relative, outdir, options, cwd = task
    here = os.getcwd()
    place = (lambda p: os.path.join(cwd, p) if p else p) if here != cwd else (lambda p: p)
    text = _ipg.batch_run_file(pipeline, place(path), relative, place(outdir), place(options["second"]),
                               place(options["roi"]), options["frame"], options["png"], options["colormap"],
                               options["log"], options["threads"])
    if here == cwd:
        return text
    record = json.loads(text)
    record["input"] = path
    record["outputs"] = [outdir + o[len(place(outdir)):] if o.startswith(place(outdir)) else o
                         for o in record["outputs"]]
    return json.dumps(record)


class _InProcess:
    """An executor that runs each task at once, in the calling thread."""

    def submit(self, fn, *args):
        future = concurrent.futures.Future()
        try:
            future.set_result(fn(*args))
        except Exception as error:
            future.set_exception(error)
        return future


def _is_dask(executor):
    return type(executor).__module__.split(".")[0] == "distributed"


def _wait_function(executor):
    if _is_dask(executor):
        from distributed import wait
        return wait
    return concurrent.futures.wait


def _default_in_flight(executor):
    if isinstance(executor, _InProcess):
        return 1
    if _is_dask(executor):
        return 4 * max(1, sum(executor.nthreads().values()))
    return 4 * (getattr(executor, "_max_workers", None) or os.cpu_count() or 1)

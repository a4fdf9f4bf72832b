# SPDX-License-Identifier: Apache-2.0
"""ipg.batch.run: the same outputs, report and table as `ipg batch`, in this
process and on a local dask cluster of two worker processes."""

import csv
import json
import os
import shutil

import numpy as np
import pytest

import ipg
import ipg.batch

# tornado's own deprecation, raised as dask's cluster starts its event loop
pytestmark = pytest.mark.filterwarnings("ignore:make_current is deprecated:DeprecationWarning")

PIPELINE = [  # despeckle, then the basic statistics of the despeckled image
    {"class": "IPG_FILTER_PROCESSING", "tools": 516, "parameters": []},
    {"class": "IPG_STATISTIC1", "tools": 6, "parameters": []},
]


@pytest.fixture(scope="module")
def archive(tmp_path_factory):
    """18 phantoms of 64 x 64 (two below sub/), a truncated file, and the pipeline file."""
    root = tmp_path_factory.mktemp("archive")
    scans = root / "scans"
    (scans / "sub").mkdir(parents=True)
    for seed in range(18):
        image, _ = ipg.phantom(size=64, seed=seed)
        image.write(scans / ("sub" if seed < 2 else "") / f"p{seed:02}.dcm")
    (scans / "sub" / "broken.dcm").write_bytes((scans / "p05.dcm").read_bytes()[:300])
    (root / "p.json").write_text(json.dumps({"format": "ipg-pipeline", "version": 1, "steps": PIPELINE}))
    return root


@pytest.fixture(scope="module")
def client():
    distributed = pytest.importorskip("distributed", reason="dask.distributed is not installed "
                                      "(python3-distributed); the cluster engine is not tested")
    cluster = distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None)
    try:
        with distributed.Client(cluster, timeout="30s") as client:
            yield client
    finally:
        cluster.close(timeout=30)


def comparable(report, outdir):
    """The report's records by input, without the times, outputs named below 'OUT'."""
    records = {}
    for line in open(report, encoding="utf-8"):
        record = json.loads(line)
        record.pop("seconds")
        record["outputs"] = [os.path.relpath(o, outdir) for o in record["outputs"]]
        records[record["input"]] = record
    return records


def table(path):
    with open(path, newline="", encoding="utf-8") as f:
        return [row[:2] + row[3:] for row in csv.reader(f)]  # without the seconds


def pixels(outdir):
    return {str(p.relative_to(outdir)): np.asarray(ipg.read(p)).copy() for p in outdir.rglob("*.dcm")}


def test_cluster_local_and_program_agree(archive, client, ipg_cli):
    scans = archive / "scans"
    on_cluster = ipg.batch.run(archive / "p.json", [scans], archive / "cluster", client=client, timeout=60)
    here = ipg.batch.run(PIPELINE, str(scans), archive / "here")
    assert ipg_cli("batch", archive / "p.json", scans, "-o", archive / "cli", "--jobs", "2").returncode == 1

    for summary in (on_cluster, here):
        assert (summary.inputs, summary.done, summary.failed, summary.skipped) == (19, 18, 1, 0)
        broken = next(r for r in summary.records if r["input"].endswith("broken.dcm"))
        assert broken["error"].startswith("cannot read ") and broken["outputs"] == []
    expected = comparable(archive / "cli" / "report.jsonl", archive / "cli")
    assert comparable(on_cluster.report, archive / "cluster") == expected
    assert comparable(here.report, archive / "here") == expected
    assert table(on_cluster.csv) == table(here.csv) == table(archive / "cli" / "results.csv")
    reference = pixels(archive / "cli")
    assert sorted(reference) == sorted(pixels(archive / "cluster")) and "sub/p01.dcm" in reference
    for outdir in ("cluster", "here"):
        got = pixels(archive / outdir)
        assert all(np.array_equal(got[name], reference[name]) for name in reference)
    assert not list((archive / "cluster").rglob("*.partial"))


def test_resume_runs_only_what_is_not_complete(archive, client, ipg_cli):
    scans, out = archive / "scans", archive / "resumed"
    ipg.batch.run(PIPELINE, [scans], out, client=client, timeout=60)
    (out / "p07.dcm").unlink()
    kept = (out / "p08.dcm").stat().st_mtime_ns

    summary = ipg.batch.run(PIPELINE, [scans], out, client=client, resume=True, timeout=60)
    # p07 lost its output and the broken file failed: only they run again
    assert (summary.done, summary.failed, summary.skipped, summary.not_run) == (1, 1, 17, 0)
    assert (out / "p07.dcm").exists() and (out / "p08.dcm").stat().st_mtime_ns == kept
    assert len(open(summary.report, encoding="utf-8").readlines()) == 19
    # the records, kept ones included, read back from the report
    lines = [json.loads(line) for line in open(summary.report, encoding="utf-8")]
    assert len(summary.records) == 19 and summary.records[-1] == summary.records[18]
    assert {r["input"]: r for r in summary.records} == {r["input"]: r for r in lines}
    assert [r["input"] for r in summary.records[1:3]] == [summary.records[1]["input"], summary.records[2]["input"]]
    # the program resumes what the cluster wrote
    finished = ipg_cli("batch", archive / "p.json", scans, "-o", out, "--resume")
    assert "0 done, 1 failed, 18 already complete" in finished.stdout


def test_worker_elsewhere_names_paths_as_the_caller_gave_them(archive, tmp_path, monkeypatch):
    shutil.copy(archive / "scans" / "p03.dcm", tmp_path / "a.dcm")
    (tmp_path / "elsewhere").mkdir()
    monkeypatch.chdir(tmp_path / "elsewhere")
    options = {"second": "", "roi": "", "frame": 0, "png": True, "colormap": None, "log": False, "threads": 1}
    pipeline = json.dumps({"format": "ipg-pipeline", "version": 1, "steps": PIPELINE})
    record = json.loads(ipg.batch._run_task((pipeline, "a.dcm", "a.dcm", "out", options, str(tmp_path))))
    assert (record["input"], record["error"], record["outputs"]) == ("a.dcm", None, ["out/a.dcm", "out/a.png"])
    assert (tmp_path / "out" / "a.dcm").exists() and (tmp_path / "out" / "a.png").exists()


def test_what_would_fail_everywhere_stops_before_the_run(archive, tmp_path):
    two_inputs = [{"class": "IPG_ARITHMETIC2", "tools": 300, "parameters": []}]
    with pytest.raises(ValueError, match="needs a second input image"):
        ipg.batch.run(two_inputs, [archive / "scans"], tmp_path / "out")
    with pytest.raises(ValueError, match="png=True"):
        ipg.batch.run(PIPELINE, [archive / "scans"], tmp_path / "out", colormap="viridis")
    assert not (tmp_path / "out" / "report.jsonl").exists()


def test_report_places_and_rows_beyond_the_run_are_errors(tmp_path):
    from ipg import _ipg
    report = tmp_path / "report.jsonl"
    text = json.dumps({"input": "a.dcm", "outputs": [], "results": [], "messages": [], "error": None, "seconds": 0})
    report.write_text(text + "\n")
    assert _ipg.batch_index_report(str(report)) == {"a.dcm": (0, len(text))}
    assert _ipg.batch_report_text(str(report), 0, len(text)) == text
    for offset, length in ((0, 2**62), (len(text) + 2, 1), (2**63, 1)):  # never allocated, never read
        with pytest.raises(OSError, match="no such line"):
            _ipg.batch_report_text(str(report), offset, length)
    table = _ipg.ResultsTable(str(tmp_path / "results.csv"), 1)
    with pytest.raises(IndexError):
        table.set(1, _ipg.BatchRecord(text))
    table.set(0, _ipg.BatchRecord(text))
    table.write()
    assert (tmp_path / "results.csv").read_text().splitlines()[1].startswith("a.dcm,")

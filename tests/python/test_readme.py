# SPDX-License-Identifier: Apache-2.0
"""The example of the README's Python section runs as written."""

import os
import re

import numpy as np

import ipg


def readme_example():
    path = os.environ.get("IPG_README") or os.path.join(os.path.dirname(__file__), "..", "..", "README.md")
    text = open(path, encoding="utf-8").read()
    section = text.split("\n## Python\n", 1)[1].split("\n## ", 1)[0]
    return re.search(r"```python\n(.*?)```", section, re.S).group(1)


def test_readme_example(tmp_path, monkeypatch, capsys):
    image, truth = ipg.phantom()  # what `ipg phantom phantom.dcm` writes
    image.write(tmp_path / "phantom.dcm")
    monkeypatch.chdir(tmp_path)
    monkeypatch.setenv("MPLBACKEND", "Agg")
    namespace = {}
    exec(compile(readme_example(), "README.md", "exec"), namespace)
    assert "'NbPixels'" in capsys.readouterr().out
    cyst = namespace["cyst"]
    assert cyst.sum() > 1000 and (np.asarray(truth)[cyst] == 2).all()  # the cyst, and only it

# SPDX-License-Identifier: Apache-2.0
"""Shared fixtures: the package from the build tree (PYTHONPATH, set by CTest),
a phantom image, and the `ipg` program of the same build."""

import os
import shutil
import subprocess

import numpy as np
import pytest

import ipg


@pytest.fixture(scope="session")
def phantom():
    """A 64 x 64 speckled phantom (8-bit) and its region mask (0 to 3)."""
    image, mask = ipg.phantom(size=64, seed=3)
    return image, np.asarray(mask).copy()


@pytest.fixture(autouse=True)
def default_sinks():
    """Every test starts with raising messages, no progress function and the
    default thread count."""
    ipg.set_message_handler(None)
    ipg.set_progress(None)
    yield
    ipg.set_message_handler(None)
    ipg.set_progress(None)
    ipg.set_num_threads(0)


@pytest.fixture(scope="session")
def ipg_cli():
    """Runs the `ipg` program with arguments; returns the completed process."""
    program = os.environ.get("IPG_CLI") or shutil.which("ipg")
    if not program or not os.path.exists(program):
        pytest.skip("the ipg program is not built")
    return lambda *args: subprocess.run([program, *map(str, args)], capture_output=True, text=True, check=False)

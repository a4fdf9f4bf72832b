# SPDX-License-Identifier: Apache-2.0
"""Every operator class from its table: settings, runs, messages, progress."""

import json
import threading

import numpy as np
import pytest

import ipg


def test_every_class_of_the_program_is_a_python_class(ipg_cli):
    listed = json.loads(ipg_cli("list", "--json").stdout)
    assert ipg.classes() == sorted(entry["class"] for entry in listed)
    for entry in listed:
        cls = getattr(ipg, entry["class"])
        assert isinstance(ipg.Operator(entry["class"].lower()), cls)
        assert cls.codes == {c["code"]: c["method"] for c in entry["codes"]}


# Settings without which a class has nothing valid to run.
NEEDED = {"IPG_HOLDER": {"WindowSize": 5}, "IPG_GRIDCORRECTION": {"Pitch": 16}}


def bead_grid(side=64, pitch=16):
    """A calibration image: Gaussian beads every `pitch` pixels."""
    y, x = np.mgrid[0:side, 0:side]
    image = np.full((side, side), 100.0)
    for cy in range(pitch // 2, side, pitch):
        for cx in range(pitch // 2, side, pitch):
            image += 1000 * np.exp(-((x - cx) ** 2 + (y - cy) ** 2) / 8)
    return ipg.Image.from_array(image.astype(np.int32))


@pytest.mark.parametrize("name", ipg.classes())
def test_every_class_runs_on_a_phantom(name, phantom):
    image, roi = phantom[0], phantom[1] != 0
    if name == "IPG_GRIDCORRECTION":  # it needs beads, which the phantom has not
        image, roi = bead_grid(), None
    cls = getattr(ipg, name)
    applied = []
    for code in cls.codes or [None]:
        op = cls(**NEEDED.get(name, {}))
        op.code = code
        if "ClassType" in cls.parameter_names():  # the container holds the class of that code
            op.ClassType = code
        try:
            op.apply(image.copy(), second=image, roi=roi)
            applied.append(code)
        except ipg.OperatorError as error:  # refusals are messages, never crashes
            assert error.messages or not error.applied
    assert applied, f"no operation of {name} applied"


# (class, code, [(parameter, Python value, the same on the command line)], two inputs)
@pytest.mark.parametrize("name, code, settings, second", [
    ("IPG_FILTER_PROCESSING", 513, [("NbIter", 2, "2")], False),
    ("IPG_FILTER_PROCESSING", 501, [("UserFilter", [[1, 2, 1], [2, 4, 2], [1, 2, 1]], "3x3:1,2,1,2,4,2,1,2,1")], False),
    ("IPG_MORPHO_PROCESSING", 1102, [("DefinedFilter", 201, "201")], False),
    ("IPG_GENERIC_PROCESSING", 401, [("SeuilMin", 100, "100"), ("SeuilMax", 200, "200")], False),
    ("IPG_ARITHMETIC1", 206, [("Variable", 0.5, "0.5")], False),
    ("IPG_ARITHMETIC2", 302, [], True),
])
def test_same_pixels_as_ipg_run(ipg_cli, tmp_path, phantom, name, code, settings, second):
    image = phantom[0]
    image.write(tmp_path / "in.dcm")
    other = ipg.Image.from_array(np.asarray(image)[::-1].copy())
    other.write(tmp_path / "second.dcm")
    op = getattr(ipg, name)(**{key: value for key, value, _ in settings})
    op.code = code
    out = op.apply(image.copy(), second=other if second else None)
    args = ["run", name, tmp_path / "in.dcm", "--tools", code, "-o", tmp_path / "out.dcm"]
    args += ["--second", tmp_path / "second.dcm"] if second else []
    for key, _, text in settings:
        args += ["--set", f"{key}={text}"]
    assert ipg_cli(*args).returncode == 0
    np.testing.assert_array_equal(np.asarray(out), np.asarray(ipg.read(tmp_path / "out.dcm")))


# Per-pixel results (bins, residents) are held flat in the program: the same
# lists reach Python as `ipg run --json` prints them, whole numbers as int.
@pytest.mark.parametrize("name, settings", [
    ("IPG_HISTO", []),
    ("IPG_CONNEXITY_PROCESSING", [("Value", 1, "1")]),
])
def test_list_results_are_those_of_ipg_run(ipg_cli, tmp_path, phantom, name, settings):
    image, mask = phantom
    source = ipg.Image.from_array(mask) if name == "IPG_CONNEXITY_PROCESSING" else image
    source.write(tmp_path / "in.dcm")
    op = getattr(ipg, name)(**{key: value for key, value, _ in settings})
    op.apply(source.copy())
    args = ["run", name, tmp_path / "in.dcm", "--json"]
    for key, _, text in settings:
        args += ["--set", f"{key}={text}"]
    run = ipg_cli(*args)
    assert run.returncode == 0, run.stderr
    printed = json.loads(run.stdout)
    key = "Histo" if name == "IPG_HISTO" else "Components"
    assert op.results[key] == printed[key] and len(printed[key]) > 0
    first = op.results[key][0] if name == "IPG_HISTO" else op.results[key][0]["residents"][0][0]
    assert type(first) is int
    # The functional API asks for them as arrays: the same numbers.
    values = [(k, text) for k, _, text in settings]
    arrays = ipg._ipg.run(name, source.copy(), values=values, arrays=True)["results"][key]
    if name == "IPG_HISTO":
        np.testing.assert_array_equal(arrays, printed[key])
    else:
        np.testing.assert_array_equal(arrays[0]["residents"], printed[key][0]["residents"])


def test_a_kernel_given_as_an_array_is_the_predefined_box(phantom):
    box = ipg.IPG_FILTER_PROCESSING(DefinedFilter=0).apply(phantom[0])
    user = ipg.IPG_FILTER_PROCESSING(UserFilter=np.ones((3, 3), int))
    user.code = 501
    np.testing.assert_array_equal(np.asarray(user.apply(phantom[0])), np.asarray(box))


def test_bad_settings_raise_when_set(phantom):
    op = ipg.IPG_REGION(Seed=(3, 4), SetTolerance=2.5)
    assert (op.Seed, op.get("Tolerance")) == ((3, 4), 2.5)
    with pytest.raises(ValueError, match="unknown parameter 'Sead'"):
        op.set(Sead=(1, 2))
    with pytest.raises(ValueError, match="Seed"):
        op.Seed = (1, 2, 3)
    with pytest.raises(ValueError, match="MinGL"):
        op.MinGL = 2**40
    with pytest.raises(AttributeError):
        op.Tolerence = 1
    with pytest.raises(ValueError, match="unknown operator class"):
        ipg.Operator("IPG_NOTHING")
    with pytest.raises(ValueError, match="needs an input image"):
        op.apply(None)
    with pytest.raises(ValueError, match="second input"):
        ipg.IPG_ARITHMETIC2().apply(phantom[0])
    with pytest.raises(ValueError, match="no option"):
        op.set_option("plot", "x.png")


def test_messages_raise_or_reach_the_handler(phantom):
    op = ipg.IPG_ARITHMETIC1(Variable=0.0)
    op.set_tools(205)
    with pytest.raises(ipg.OperatorError) as raised:
        op.apply(phantom[0])
    assert raised.value.messages == ["Division par Zéro"] and not raised.value.applied
    shown = []
    ipg.set_message_handler(lambda text, caption: shown.append((text, caption)))
    assert op.apply(phantom[0]) is not None and op.applied is False
    ipg.IPG_FILTER_PROCESSING().apply(phantom[0], roi=np.ones((3, 3)))
    assert shown == [("Division par Zéro", "Information"), (
        "La ROI n'a pas les mêmes dimensions que l'image : IPG_FILTER_PROCESSING::Apply()", "Information")]


def test_progress_reaches_the_callback_and_its_exception_cancels(phantom):
    seen = []
    ipg.set_progress(lambda label, done, total: seen.append((label, done, total)))
    op = ipg.IPG_FILTER_PROCESSING(NbIter=3)
    op.code = 513
    op.apply(phantom[0])
    assert seen == [("LEE FILTER", done, 3) for done in range(4)]

    def interrupt(label, done, total):
        if done == 1:
            raise KeyboardInterrupt
    ipg.set_progress(interrupt)
    with pytest.raises(KeyboardInterrupt):
        op.apply(phantom[0])
    ipg.set_progress(None)
    op.apply(phantom[0])  # the next run is not cancelled


def test_thread_count_reaches_the_library_and_changes_no_pixel():
    image, _ = ipg.phantom(size=512, seed=5)
    op = ipg.IPG_GENERIC_PROCESSING(SeuilMin=90, SeuilMax=180)
    op.code = 403
    ipg.set_num_threads(1)
    one = np.asarray(op.apply(image))
    ipg.set_num_threads(3)
    assert ipg.get_num_threads() == 3
    np.testing.assert_array_equal(np.asarray(op.apply(image)), one)


def test_released_cached_memory_is_allocated_afresh_with_the_same_results(phantom):
    kept = ipg.lee(phantom[0], 2)
    ipg.release_cached_memory()
    np.testing.assert_array_equal(ipg.lee(phantom[0], 2), kept)


def test_python_threads_run_operators_side_by_side_with_their_own_messages(phantom):
    expected = ipg.lee(phantom[0], 2)
    smoothed, messages = {}, {}

    def work(k):
        smoothed[k] = ipg.lee(phantom[0], 2)
        try:  # a constant image: the even threads' statistics show a message
            ipg.stats(np.ones((4, 4)) if k % 2 == 0 else phantom[0])
        except ipg.OperatorError as error:
            messages[k] = error.messages
    threads = [threading.Thread(target=work, args=(k,)) for k in range(6)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert all(np.array_equal(smoothed[k], expected) for k in range(6))
    assert messages == {k: ["problème : variance négative"] for k in range(0, 6, 2)}

# SPDX-License-Identifier: Apache-2.0
"""Operator classes of the library, made at import from the class tables.

Each class that the library declares (its operation codes, parameters and
results) becomes a Python class of the same name, so a new operator needs no
code here:

    op = ipg.IPG_FILTER_PROCESSING(NbIter=3)   # or ipg.Operator("IPG_FILTER_PROCESSING")
    op.code = 513                              # LeeFilter
    out = op.apply(image)                      # ipg.Image; op.results holds the numbers
"""

import numbers
import os

import numpy as np

from . import _ipg

# The pixel value that marks a set pixel of a binary image and the inside of a
# region of interest.
ROI_VALUE = 16777217

_CAPTION = "Information"


class OperatorError(RuntimeError):
    """An operator showed a message (its French text) or returned false."""

    def __init__(self, class_name, messages, applied):
        self.class_name = class_name
        self.messages = list(messages)
        self.applied = applied
        reason = "; ".join(self.messages) if self.messages else "the operation returned false"
        super().__init__(f"{class_name}: {reason}")


_message_handler = None


def set_message_handler(handler):
    """Hands operator messages to handler(text, caption) instead of raising.

    With a handler, a failed operation no longer raises OperatorError: as in a
    host application, the handler shows the message and the operator's
    `applied` is False. None restores raising. Returns the previous handler.
    """
    global _message_handler
    previous, _message_handler = _message_handler, handler
    return previous


def _deliver(class_name, outcome):
    """Sends the messages of a call to the handler, or raises them."""
    messages = outcome["messages"]
    if _message_handler is not None:
        for text in messages:
            _message_handler(text, _CAPTION)
    elif messages or not outcome["applied"]:
        raise OperatorError(class_name, messages, outcome["applied"])


def as_image(value):
    """An ipg.Image as it is, None as it is, anything else through a 2-D array."""
    if value is None or isinstance(value, _ipg.Image):
        return value
    return _ipg.Image.from_array(np.asarray(value))


def roi_image(roi):
    """A region of interest: kept when it already marks pixels with ROI_VALUE,
    else every non-zero (or True) pixel becomes ROI_VALUE."""
    if roi is None:
        return None
    pixels = np.asarray(roi)
    if (pixels == ROI_VALUE).any():
        return as_image(roi)
    return _ipg.Image.from_array(np.where(pixels != 0, ROI_VALUE, 0).astype(np.int32))


def _text(value):
    """A parameter value written as the command line writes it."""
    if isinstance(value, (bool, np.bool_)):
        return "true" if value else "false"
    if isinstance(value, numbers.Integral):
        return str(int(value))
    if isinstance(value, numbers.Real):
        return repr(float(value))
    if isinstance(value, (str, os.PathLike)):
        return os.fspath(value)
    array = np.asarray(value)
    if array.ndim == 2:  # a kernel: columns x rows, then the values row by row
        rows, cols = array.shape
        return f"{cols}x{rows}:" + ",".join(_text(v) for v in array.ravel().tolist())
    if array.ndim == 1:  # a point or a list of reals
        return ",".join(_text(v) for v in array.tolist())
    raise TypeError(f"cannot pass {type(value).__name__} as a parameter value")


class Operator:
    """One operator of the library, configured then applied to images.

    Operator(name, **parameters) makes an instance of the class `name`
    (ipg.classes() lists them); each class is also ipg.<NAME>. Parameters are
    set with set(**parameters) or as attributes; `code` chooses the operation
    (the library's Tools) and `mode` the output mode. apply() builds the
    operator as a host does, runs it once with the GIL released and returns its
    main output image (None for a measuring class); `results` then holds its
    numbers as `ipg run --json` prints them, and `outputs` every output image.
    """

    _info = None  # the class table, set on each generated class

    def __new__(cls, name=None, **parameters):
        if cls is Operator:
            if name is None:
                raise TypeError("Operator(name): name an operator class (ipg.classes() lists them)")
            cls = _class_named(name)
        return super().__new__(cls)

    def __init__(self, name=None, **parameters):
        if name is not None and _class_named(name) is not type(self):
            raise TypeError(f"{type(self).__name__} is not {name}")
        object.__setattr__(self, "_values", {})
        object.__setattr__(self, "_options", [])
        object.__setattr__(self, "_outcome", None)
        self.code = None
        self.mode = None
        self.output_precision = None
        self.set(**parameters)

    name = property(lambda self: self._info["name"], doc="The library's class name.")
    code = None  # operation code (Tools); None keeps the class default
    mode = None  # output mode; None keeps the class default (301)
    output_precision = None  # precision of the output images; None: the input's

    def set(self, **parameters):
        """Sets parameters by name (NbIter=3, or SetNbIter=3); returns self.

        Raises ValueError at once for an unknown name or a value the parameter
        cannot take.
        """
        for name, value in parameters.items():
            name = self._parameter_name(name)
            text = _text(value)
            trial = dict(self._values)
            trial[name] = (value, text)
            _ipg.check_settings(self.name, [(n, t) for n, (_, t) in trial.items()])
            self._values[name] = (value, text)
        return self

    def get(self, name):
        """The value last set for a parameter, or None."""
        return self._values.get(self._parameter_name(name), (None, None))[0]

    def set_tools(self, code):
        """Chooses the operation code, as the library's SetTools."""
        self.code = code

    def set_mode(self, mode):
        """Chooses the output mode, as the library's SetMode."""
        self.mode = mode

    def set_option(self, name, value=""):
        """A class's own option of `ipg run` (IPG_HISTO's plot, for one)."""
        known = [o[0] for o in self._info["options"]]
        if name not in known:
            raise ValueError(f"{self.name} has no option {name!r} (options: {', '.join(known) or 'none'})")
        self._options.append((name, _text(value)))

    def apply(self, image, second=None, roi=None):
        """Runs the operator on image (an ipg.Image or a 2-D array).

        second is the second input of the two-image classes; roi restricts the
        work (non-zero pixels, or those equal to ROI_VALUE). Returns the main
        output image, or None for a class that writes none.
        """
        outcome = _ipg.run(self.name, as_image(image), as_image(second), roi_image(roi),
                           tools=self.code, mode=self.mode, precision=self.output_precision,
                           values=[(n, t) for n, (_, t) in self._values.items()], options=self._options)
        object.__setattr__(self, "_outcome", outcome)
        _deliver(self.name, outcome)
        return next(iter(outcome["images"].values()), None)

    @property
    def applied(self):
        """What the last apply()'s Apply() returned (None before any)."""
        return None if self._outcome is None else self._outcome["applied"]

    @property
    def results(self):
        """The numerical results of the last apply(), as a dict."""
        return {} if self._outcome is None else self._outcome["results"]

    @property
    def outputs(self):
        """Every output image of the last apply(), by label ("out" first)."""
        return {} if self._outcome is None else self._outcome["images"]

    @property
    def messages(self):
        """The messages the last apply() showed."""
        return [] if self._outcome is None else self._outcome["messages"]

    def __setattr__(self, name, value):
        if not hasattr(type(self), name):
            raise AttributeError(f"{self.name} has no parameter {name!r} "
                                 f"(parameters: {', '.join(self.parameter_names()) or 'none'})")
        object.__setattr__(self, name, value)

    @classmethod
    def parameter_names(cls):
        return [p[0] for p in cls._info["parameters"]]

    def _parameter_name(self, name):
        """The table's name for SetName; other names are left to the library's
        check (IPG_CONTAINER passes them on to the class it holds)."""
        names = self.parameter_names()
        if name not in names and name.startswith("Set") and name[3:] in names:
            return name[3:]
        return name

    def __repr__(self):
        settings = [f"{n}={v!r}" for n, (v, _) in self._values.items()]
        settings += [f"code={self.code}"] if self.code is not None else []
        settings += [f"mode={self.mode}"] if self.mode is not None else []
        return f"ipg.{self.name}({', '.join(settings)})"


def _parameter_property(name, kind, description):
    return property(lambda self: self.get(name), lambda self, value: self.set(**{name: value}),
                    doc=f"{description} ({kind})")


def _class_doc(info):
    lines = [f"{info['name']}: {info['summary']}.", "", "Operation codes (code):"]
    lines += [f"    {code}  {method}" for code, method in info["codes"]]
    lines += ["", "Parameters:"] + [f"    {n} ({k}): {d}" for n, k, d in info["parameters"]]
    lines += ["", "Results: " + ", ".join(info["results"])]
    return "\n".join(lines)


def _make_class(info):
    attributes = {"_info": info, "__doc__": _class_doc(info), "codes": dict(info["codes"]),
                  "__module__": "ipg"}
    for name, kind, description in info["parameters"]:
        attributes[name] = _parameter_property(name, kind, description)
    return type(info["name"], (Operator,), attributes)


CLASSES = {info["name"]: _make_class(info) for info in _ipg.classes()}


def _class_named(name):
    for known, cls in CLASSES.items():
        if known.upper() == str(name).upper():
            return cls
    raise ValueError(f"unknown operator class {name!r} (ipg.classes() lists them)")


def classes():
    """The names of the operator classes, sorted."""
    return sorted(CLASSES)

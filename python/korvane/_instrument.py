"""The work itself: an instrument with its spectra, measurements, searches and setpoints."""

from __future__ import annotations

import contextlib
import ctypes
import html
import os
from typing import Any, Callable, Dict, Iterator, List, NamedTuple, Optional, Sequence

import numpy as np

from . import _values
from ._classes import TABLES, LateBound, open_platform
from ._layer import Layer
from ._library import PROBE, Error, TimeOut, UsageError, check, handle_from, library, state
from ._values import SIZE, Handle, unpack, value_from

_UNITS = {int(index): unit for index, unit in TABLES["setpoint_units"].items() if unit not in ("code", "flag", "text")}
_ENDS = ("within tolerance", "resolution reached", "target never reached")


class AbortToken:
    """Ends calls, from any thread: those made with `with token:` in their thread, or given as `abort=token`. The abort
    flag of the preference file stays as it is."""

    def __init__(self) -> None:
        self._handle = Handle(handle_from(library.korvane_token))
        self._outer: List[int] = []

    def abort(self) -> None:
        check(library.korvane_abort(self._handle.number))

    def __enter__(self) -> "AbortToken":
        self._outer.append(state.calls.token)
        state.calls.token = self._handle.number
        return self

    def __exit__(self, *_: Any) -> None:
        state.calls.token = self._outer.pop()


class Spectrum(NamedTuple):
    """One spectrum: amu, ns and counts of every sample, read-only; the metadata of the instrument."""

    mz: np.ndarray
    time_ns: np.ndarray
    counts: np.ndarray
    metadata: List[Any]

    def __repr__(self) -> str:
        return f"<Spectrum of {self.mz.size} samples, m/z {self.mz[0]:.4f} to {self.mz[-1]:.4f}>"


class Row(NamedTuple):
    """A calibrant: expected and measured mass (m/z), error in ppm, flight time and width (FWHM) in ns, height in counts,
    m / FWHM, whether the height reaches the tune parameters' minimum, and standard errors, NaN where none are stated.
    All but the first are NaN where no peak was found."""

    expected_mz: float
    measured_mz: float
    error_ppm: float
    time_ns: float
    height: float
    width_ns: float
    resolution: float
    reaches_minimum: bool
    time_error_ns: float
    height_error: float
    quality: str  # "clipped", "overlapped", "few ions", "misfit 1.8", with commas; "ok"; "-" where none is told

    @property
    def found(self) -> bool:
        return self.height == self.height


def _quality(clipped: float, overlapped: float, few_ions: float, misfit: float) -> str:
    if misfit != misfit:
        return "-"
    told = [name for name, holds in (("clipped", clipped), ("overlapped", overlapped), ("few ions", few_ions)) if holds]
    return ", ".join(told + ([f"misfit {misfit:.2g}"] if misfit > 1 else [])) or "ok"


class Measurement(Sequence[Row]):
    """A table of calibrants."""

    def __init__(self, rows: List[Row], pictures: List[str]):
        self._rows, self._pictures = rows, pictures

    def __getitem__(self, place):  # type: ignore
        return self._rows[place]

    def __len__(self) -> int:
        return len(self._rows)

    def to_dataframe(self):  # type: ignore
        """As a pandas DataFrame; needs pandas."""
        import pandas  # type: ignore

        return pandas.DataFrame(self._rows, columns=Row._fields)

    def __repr__(self) -> str:
        lines = [f"{'expected m/z':>12}  {'measured m/z':>12}  {'error ppm':>9}  {'time ns':>10}  {'height':>7}  "
                 f"{'width ns':>8}  {'resolution':>10}  quality"]
        for row in self._rows:
            lines.append(f"{row.expected_mz:12.4f}  {row.measured_mz:12.4f}  {row.error_ppm:9.2f}  {row.time_ns:10.3f}  "
                         f"{row.height:7.0f}  {row.width_ns:8.3f}  {row.resolution:10.0f}  {row.quality}" if row.found
                         else f"{row.expected_mz:12.4f}  {'no peak':>12}")
        return "\n".join(lines)

    def _repr_html_(self) -> str:
        names = ("expected m/z", "measured m/z", "error ppm", "time ns", "height", "width ns", "resolution", "quality", "peak")
        body = ""
        for row, picture in zip(self._rows, self._pictures):
            cells = [f"{row.expected_mz:.4f}", f"{row.measured_mz:.4f}", f"{row.error_ppm:.2f}", f"{row.time_ns:.3f}",
                     f"{row.height:.0f}", f"{row.width_ns:.3f}", f"{row.resolution:.0f}", row.quality]
            if not row.found:
                cells[1:] = ["no peak"] + [""] * 6
            body += "<tr>" + "".join(f"<td>{html.escape(cell)}</td>" for cell in cells) + f"<td>{picture}</td></tr>"
        return ("<table><thead><tr>" + "".join(f"<th>{html.escape(name)}</th>" for name in names) +
                f"</tr></thead><tbody>{body}</tbody></table>")


def _picture(times: np.ndarray, counts: np.ndarray, row: Row) -> str:
    """The samples about a peak as a line, 120 by 32 pixels."""
    if not row.found or not times.size:
        return ""
    first, last = np.searchsorted(times, [row.time_ns - 4 * row.width_ns, row.time_ns + 4 * row.width_ns])
    if last - first < 2:
        return ""
    x = np.linspace(0, 120, last - first)
    y = 31 - 30 * counts[first:last] / max(float(counts[first:last].max()), 1.0)
    points = " ".join(f"{a:.1f},{b:.1f}" for a, b in zip(x, y))
    return (f'<svg width="120" height="32" role="img"><title>m/z {row.expected_mz:.4f}</title>'
            f'<polyline points="{points}" fill="none" stroke="currentColor"/></svg>')


class Probe(NamedTuple):
    """One probe of a search: the setpoint's value, the abundance (counts), and the bracket after it."""

    number: int
    value: float
    abundance: float
    low: float
    high: float


class Adjustment(NamedTuple):
    """How a search ended: the value found, the abundance there and the target at the search's number of transients
    (counts), in which way, and every probe. `reached`: within tolerance, or beside a value that shows more."""

    value: float
    abundance: float
    scaled_target: float
    end: str
    probes: List[Probe]

    @property
    def reached(self) -> bool:
        beside = self.end == _ENDS[1] and any(probe.abundance > self.scaled_target for probe in self.probes)
        return self.abundance > 0 and (self.end == _ENDS[0] or beside)


class Setpoint:
    """One setpoint, in its own unit. `value` reads and sets it."""

    def __init__(self, instrument: "Instrument", index: int):
        self._instrument, self.index = instrument, index

    def _table(self):  # type: ignore
        return self._instrument._view.Setpoints

    @property
    def name(self) -> str:
        return self._table().InternalName(self.index)

    @property
    def external_name(self) -> str:
        """As the metadata of spectra have it."""
        return self._table().ExternalName(self.index)

    @property
    def unit(self) -> str:
        """Empty where the library knows none."""
        return _UNITS.get(self.index, "")

    @property
    def limits(self) -> tuple:
        table = self._table()
        return table.LowerLimit(self.index), table.UpperLimit(self.index)

    @property
    def resolution(self) -> float:
        return self._table().Resolution(self.index)

    @property
    def value(self) -> float:
        return self._table().Value(self.index, 0, 0)

    @value.setter
    def value(self, value: float) -> None:
        low, high = self.limits
        if not low <= value <= high:
            raise UsageError(5, "korvane", f"{self.name}: {value} lies outside its limits, {low} to {high} {self.unit}".
                             rstrip())
        shown = self._instrument.globals.SetMSSetpointValueByIdx(self.index, float(value))
        if abs(shown - value) > max(self._table().Tolerance(self.index), 1e-9 * abs(value)):
            raise TimeOut(-807, "korvane", f"the instrument did not follow: {self.name} shows {shown}, not {value}")

    @property
    def read_back(self) -> float:
        """What the next spectrum reports; waits for it. NaN where it reports nothing."""
        reported = self._instrument.globals.GetMetaValue(self.external_name)
        return float("nan") if reported == -999999.0 else reported

    def __repr__(self) -> str:
        low, high = self.limits
        return f"<Setpoint {self.name} = {self.value} {self.unit}".rstrip() + f", {low} to {high}>"


class Setpoints:
    """Setpoints by internal name or index: `q.setpoints["FragmentTune"]`, and `q.setpoints["FragmentTune"] = 180`.
    Names complete with Tab."""

    def __init__(self, instrument: "Instrument"):
        self._instrument = instrument

    def _index(self, name) -> int:  # type: ignore
        table = self._instrument._view.Setpoints
        if isinstance(name, str):
            return table.IndexOf(name)
        table.InternalName(name)
        return int(name)

    def __getitem__(self, name) -> Setpoint:  # type: ignore
        return Setpoint(self._instrument, self._index(name))

    def __setitem__(self, name, value: float) -> None:  # type: ignore
        self[name].value = value

    def __iter__(self) -> Iterator[str]:
        table = self._instrument._view.Setpoints
        return iter([table.InternalName(int(index)) for index in table.Indexes()])

    def __len__(self) -> int:
        return len(self._instrument._view.Setpoints.Indexes())

    def keys(self) -> List[str]:
        return list(self)

    _ipython_key_completions_ = keys

    def __repr__(self) -> str:
        return "\n".join(repr(self[name]) for name in self)


class Instrument:
    """An instrument and its base folder: the embedded one, simulated (`seed`, `scene`) or replayed (`replay`, mzML) on a
    base folder; a layer in Python (`layer`); or a layer of a shared library (`instrument`). Without any, what
    KORVANE_INSTRUMENT and KORVANE_BASE name. Looked for at the first use. One instrument is used by one thread at a
    time."""

    def __init__(self, base=None, seed: Optional[int] = None, scene=None, replay=None,  # type: ignore
                 instrument: Optional[str] = None, layer: Optional[Layer] = None):
        self._offered = layer._offer() if layer is not None else None
        handle = self._offered._handle.number if self._offered else 0
        self._base = open_platform(base, seed, scene, replay, instrument, handle)
        self._platform: Optional[Handle] = self._base
        self._objects: Dict[str, LateBound] = {}
        self.setpoints = Setpoints(self)

    def __enter__(self) -> "Instrument":
        return self

    def __exit__(self, *_: Any) -> None:
        self.close()

    def close(self) -> None:
        """Further uses raise; arrays that it gave stay."""
        self._objects.clear()
        self._platform = None
        _values.free_handles()

    def _object(self, name: str):  # type: ignore
        if self._platform is None:
            raise UsageError(91, "korvane", "the instrument is closed")
        if name not in self._objects:
            self._objects[name] = _values.CLASSES[name](self._platform)
        return self._objects[name]

    @property
    def globals(self):  # type: ignore
        """Its TuneGlobals."""
        return self._object("TuneGlobals")

    @property
    def parser(self):  # type: ignore
        """Its SpectrumParser."""
        return self._object("SpectrumParser")

    @property
    def parameters(self):  # type: ignore
        """Its clsTuneParamsXML."""
        return self._object("clsTuneParamsXML")

    @property
    def preferences(self):  # type: ignore
        """Its clsTunePrefsXML."""
        return self._object("clsTunePrefsXML")

    @property
    def mass_lists(self):  # type: ignore
        """Its CalMassList."""
        return self._object("CalMassList")

    @property
    def abort_flag(self):  # type: ignore
        """Its AbortHelper: the flag in the preference file, which every process sees."""
        return self._object("AbortHelper")

    @property
    def _view(self):  # type: ignore
        """The seam of the instrument itself: docs/instrument-objects.md."""
        if "view" not in self._objects:
            view = self._object("InstrumentLayer").CreateGlobals()
            view.Initialise()
            self._objects["view"] = view
        return self._objects["view"]

    def spectrum(self, abort: Optional[AbortToken] = None) -> Spectrum:
        """The next spectrum."""
        with abort or contextlib.nullcontext():
            taken = self.parser.GetNewSpectrumAndVerifyDataIsPopulated()
        return Spectrum(taken.vMassData, self._times(taken.dSpectrumStartTimeInNS, taken.vYData.size), taken.vYData,
                        taken.vMetaData)

    def _times(self, start_ns: float, count: int) -> np.ndarray:
        times = start_ns + 1e9 * self._view.SamplingInterval * np.arange(count)
        times.flags.writeable = False
        return times

    def measure(self, masses: Optional[Sequence[float]] = None, window_percent: float = -1.0,
                abort: Optional[AbortToken] = None) -> Measurement:
        """Measures calibrants in the next spectrum of the right polarity: those given (m/z), or the default list of the
        source. What it moved is put back where it fails."""
        with abort or contextlib.nullcontext(), self._kept_on_success():
            source = self.globals.GetMassListTypeFromSourceTypeString(self._view.SourceType)
            if masses is None:
                masses = self.globals.GetDefaultMassList(source, self.globals.GetPolarityStr())
            minimum = self.parameters.GetAutotuneLimitValue("RampParams", "MinimumAcceptableAbundance")
            records = self.parser.GetPeakInfoForCalibrantMasses(masses, window_percent).result
            errors = value_from(library.korvane_last_errors, self.parser._handle.number)
            times, counts = self._last_samples()
        rows: List[Row] = []
        unknown = float("nan")
        for place, (mass, (ns, amu)) in enumerate(zip(masses, records)):
            stated = errors[place] if place < len(errors) else [unknown] * 9
            mass = float(mass)
            row = Row(mass, amu.pkCentroid, (amu.pkCentroid - mass) / mass * 1e6, ns.pkCentroid, ns.pkHeight,
                      ns.pkWidth, amu.pkResolution, ns.pkHeight >= minimum, float(stated[0]), float(stated[1]),
                      _quality(*stated[5:]))
            none = Row(mass, unknown, unknown, unknown, unknown, unknown, unknown, False, unknown, unknown, "-")
            rows.append(row if any(ns) else none)
        return Measurement(rows, [_picture(times, counts, row) for row in rows])

    def _last_samples(self) -> tuple:
        assert self._platform is not None
        buffers = [ctypes.create_string_buffer(SIZE) for _ in range(3)]
        check(library.korvane_last_spectrum(self._platform.number, *buffers))
        _, counts, start_ns = [unpack(buffer) for buffer in buffers]
        return (np.empty(0), np.empty(0)) if counts is None else (self._times(start_ns, counts.size), counts)

    @contextlib.contextmanager
    def _guarded(self, keep_on_success: bool) -> Iterator[None]:
        outer, objects = self._platform, self._objects
        if outer is None:
            raise UsageError(91, "korvane", "the instrument is closed")
        guard = self._platform = Handle(handle_from(library.korvane_guard, outer.number))
        self._objects = {}
        succeeded = False
        try:
            yield
            succeeded = True
        finally:
            self._platform, self._objects = outer, objects
            moves = value_from(library.korvane_give_back, guard.number, keep_on_success and succeeded)
            failures = "; ".join(f"{name}: {failure}" for name, _, _, failure in moves if failure)
            if failures and succeeded:
                raise Error(-1, "korvane", "not given back: " + failures)

    def _kept_on_success(self):  # type: ignore
        return self._guarded(True)

    def restoring(self):  # type: ignore
        """A context: setpoints and firmware channels that are moved within it come back on every way out. Objects such
        as `q.globals` are to be asked for anew within it."""
        return self._guarded(False)

    def adjust(self, setpoint, mz: float, target: float, minimum: Optional[float] = None,  # type: ignore
               maximum: Optional[float] = None, resolution: Optional[float] = None, lower_to_reduce: bool = True,
               on_probe: Optional[Callable[[Probe], Any]] = None, abort: Optional[AbortToken] = None) -> Adjustment:
        """Searches the value of a setpoint at which the abundance at `mz` comes down to `target` (counts). Where it is
        reached the setpoint keeps that value; otherwise, and on errors, everything is put back."""
        chosen = self.setpoints[setpoint]
        low, high = chosen.limits
        probes: List[Probe] = []

        def note(_context, *probe) -> int:  # type: ignore
            probes.append(Probe(*probe))
            try:
                if on_probe is not None:
                    on_probe(probes[-1])
            except BaseException as fault:  # what leaves a callback of C is lost
                state.calls.stop = fault
            return state.calls.stop is not None

        observer = PROBE(note)
        with abort or contextlib.nullcontext(), self._guarded(True):
            parser = self.parser
            check(library.korvane_on_probe(parser._handle.number, observer, None))
            parser.BinaryAdjustAbundanceDownUsingThisSetpoint(
                chosen.index, mz, target, 30.0, lower_to_reduce, low if minimum is None else minimum,
                high if maximum is None else maximum, chosen.resolution if resolution is None else resolution)
            end, value, abundance, scaled, _, _ = value_from(library.korvane_last_search, parser._handle.number).tolist()
            outcome = Adjustment(value, abundance, scaled, _ENDS[int(end)], probes)
            if outcome.reached:
                self.globals.SetMSSetpointValueByIdx(chosen.index, value)
            else:
                value_from(library.korvane_give_back, self._platform.number, 0)  # type: ignore
        return outcome


def create_base_folder(folder) -> None:  # type: ignore
    """Makes a complete base folder: tune files, mass lists, logs. The folder must not exist or be empty."""
    check(library.korvane_create_base_folder(os.fsencode(folder)))

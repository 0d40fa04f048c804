"""The Python package: every member against late binding, errors, Ctrl-C, memory, threads, layers, documents."""

import doctest
import gc
import json
import os
import pathlib
import re
import resource
import shutil
import signal
import subprocess
import sys
import threading
import time

import numpy as np
import pytest

import korvane
from korvane import _classes, _layer, _stubs

ROOT = pathlib.Path(__file__).resolve().parents[2]


@pytest.fixture(scope="module")
def base(tmp_path_factory):
    folder = tmp_path_factory.mktemp("python") / "base"
    korvane.create_base_folder(folder)
    return folder


@pytest.fixture
def q(base):
    with korvane.Instrument(base=base, seed=1) as instrument:
        yield instrument


TEXTS = json.loads((ROOT / "tests/automation/fitting_texts.json").read_text())


def fitting(member, parameter, base):
    """An argument that the member takes, as JSON has it."""
    sort, name = parameter["type"]["sort"], parameter["name"]
    if sort == "text":
        if name == "fileName":
            return str(base / "MassLists" / "default_calibration_mass_list.xml")
        preference = member["name"].endswith("TunePreference") and name.endswith("ParamName")
        return "LogSetpointTraffic" if preference else TEXTS.get(name, "ESI")
    if sort == "record":
        return {field["name"]: 1 for field in _classes.TABLES["records"][parameter["type"]["name"]]}
    if sort == "variant" and (name == "wait_time_in_seconds" or parameter["default"] is not None):
        return 1
    if member["kind"] == "put" and sort == "long":
        return 0
    if name in ("LikelyA", "t0"):  # a calibration that later spectra can live with
        return {"LikelyA": 0.45, "t0": 0.021}[name]
    plain = {"boolean": False, "long": 1, "enumeration": 1, "single": 294.939, "double": 294.939}
    return plain.get(sort, [158.964, 294.939])


def as_json(value):
    """What `korvane call` prints of a value."""
    if isinstance(value, _classes.LateBound):
        properties = [key for key, each in vars(type(value)).items() if isinstance(each, property)]
        return {"class": type(value).__name__, **{key: as_json(getattr(value, key)) for key in properties}}
    if isinstance(value, tuple) and hasattr(value, "_number"):
        return value._asdict()
    if isinstance(value, (list, np.ndarray)):
        return [as_json(each) for each in value]
    return value.item() if isinstance(value, np.generic) else value


def test_every_member_gives_what_the_late_bound_call_gives(tmp_path):
    """The same calls in the same order, on two instruments of the same seed."""
    lines, answers = [], []
    for folder in ("ours", "program's"):
        korvane.create_base_folder(tmp_path / folder)
    instrument = korvane.Instrument(base=tmp_path / "ours", seed=1)
    for description in _classes.TABLES["classes"]:
        if not description["creatable"]:
            continue
        ours = instrument._object(description["name"])
        for member in description["members"]:
            given, told = [], []
            for parameter in member["parameters"]:
                sort, name = parameter["type"]["sort"], parameter["type"]["name"]
                if sort == "object":
                    makers = {"PeakList": ("SpectrumParser", "GetPeakListOfOnlyThisOneMass", [566.8885]),
                              "MassTimeCalibration": ("TuneGlobals", "GetCurrentCalibrationObjFromDD", [])}
                    maker, method, arguments = makers[name]
                    argument = getattr(instrument._object(maker), method)(*arguments)
                    told.append(json.dumps({"call": f"{maker}.{method}", "arguments": arguments}))
                else:
                    argument = fitting(member, parameter, tmp_path / "ours")
                    told.append(json.dumps(argument).replace("/ours/", "/program's/"))
                    if sort == "record":
                        argument = _classes.records[name](**argument)
                if parameter["direction"] != "result":
                    given.append(argument)
            put = member["kind"] == "put"
            word = f"{description['name']}.{member['name']}" + ("=" if put else "")
            lines.append(" ".join([word] + ['"' + re.sub(r'(["\\])', r"\\\1", text) + '"' for text in told]))
            try:
                if put:
                    answer = setattr(ours, member["name"], given[0])
                else:
                    answer = getattr(ours, member["name"])
                    answer = answer(*given) if member["kind"] == "method" else answer
                by_reference = {}
                if hasattr(answer, "_fields") and not hasattr(answer, "_number"):
                    by_reference = {key: as_json(each) for key, each in answer._asdict().items() if key != "result"}
                    answer = getattr(answer, "result", None)
                answers.append((as_json(answer), by_reference))
            except korvane.Error as error:
                answers.append((error.number, error.description))
    program = subprocess.run([os.environ["KORVANE_PROGRAM"], "--base", tmp_path / "program's", "--seed", "1", "call", "-"],
                             input="\n".join(lines), stdout=subprocess.PIPE, text=True)
    printed = [json.loads(line) for line in program.stdout.splitlines()]
    assert len(printed) == len(lines) > 100
    for line, (result, more), late in zip(lines, answers, printed):
        if "error" in late:
            assert result == late["error"]["number"], (line, late)
            assert more.replace("ours", "program's") == late["error"]["text"], line
            continue
        theirs = json.loads(json.dumps(late["result"]).replace("program's", "ours"))
        assert result == theirs, line
        for name, value in late.get("by_reference", {}).items():
            assert json.loads(json.dumps(more[name])) == value, (line, name)


def test_wrong_arguments_name_the_member_and_the_parameter(q):
    for description in _classes.TABLES["classes"][:6]:
        for member in description["members"]:
            asked = [each for each in member["parameters"] if each["direction"] != "result"]
            numbers = [each for each in asked if each["type"]["sort"] in ("long", "single", "double", "enumeration")]
            if member["kind"] != "method" or not numbers:
                continue
            arguments = ["no number" if each is numbers[0] else None if each["type"]["sort"] == "object" else 1
                         for each in asked]
            with pytest.raises((korvane.Error, TypeError)) as raised:
                getattr(q._object(description["name"]), member["name"])(*arguments)
            assert member["name"] in str(raised.value)
    with pytest.raises(korvane.Error, match=r"targetMass\[x\] of GetPeakAttributes"):
        q.parser.GetPeakAttributes("x")
    with pytest.raises(TypeError, match="SpectrumParser.GetPeakAttributes.*targetMass"):
        q.parser.GetPeakAttributes()


@pytest.mark.parametrize("what", [lambda q: q.globals.WaitThisManySeconds(60),
                                  lambda q: [q.measure() for _ in range(1000)],
                                  lambda q: [q.adjust("FragmentTune", 566.89, 50_000) for _ in range(1000)]])
def test_ctrl_c_ends_a_wait_and_leaves_no_flag(q, what):
    pressed = []
    threading.Timer(0.6, lambda: (pressed.append(time.monotonic()), os.kill(os.getpid(), signal.SIGINT))).start()
    handler = signal.getsignal(signal.SIGINT)
    with pytest.raises(KeyboardInterrupt):
        what(q)
    assert time.monotonic() - pressed[0] < 0.5
    assert signal.getsignal(signal.SIGINT) is handler
    assert not q.abort_flag.UserHasClickedAbort()
    assert q.measure()[0].found


def test_a_token_ends_calls_of_its_own_and_probes_raise_what_they_raise(q):
    token = korvane.AbortToken()
    threading.Timer(0.2, token.abort).start()
    with pytest.raises(korvane.Aborted), token:
        q.globals.WaitThisManySeconds(60)
    before = q.setpoints["FragmentTune"].value

    def refuse(_):
        raise ZeroDivisionError("mine")

    with pytest.raises(ZeroDivisionError, match="mine"):
        q.adjust("FragmentTune", 566.89, 50_000, on_probe=refuse)
    assert q.setpoints["FragmentTune"].value == before
    q.globals.WaitThisManySeconds(0)


def test_views_outlive_their_parser_and_cannot_be_written(base):
    with korvane.Instrument(base=base) as q:
        counts = q.spectrum().counts
        total = counts.sum()
    gc.collect()
    assert counts.sum() == total > 0
    with pytest.raises(ValueError):
        counts[0] = 1
    with pytest.raises(ValueError):
        counts.flags.writeable = True


def test_nothing_leaks_over_100000_calls(q):
    calibration = q.globals.GetCurrentCalibrationObjFromDD()
    times = np.linspace(20e3, 100e3, 50)
    calls = [lambda: calibration.MassesFromTimes(times), lambda: calibration.Clone(), lambda: calibration.Coefficients,
             lambda: q.parameters.GetAutotuneParameterXMLPath(), lambda: q.mass_lists.GetMassList("ESI", "Positive"),
             lambda: calibration.SetCoefficients(korvane.CalibrationCoefficients(*calibration.Coefficients)),
             lambda: pytest.raises(korvane.Error, calibration.MassFromTime, "x")]

    def run(count):
        for _ in range(count):
            for call in calls:
                try:
                    call()
                except korvane.Error:
                    pass
        gc.collect()
        return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss

    before = run(1500)
    assert run(100_000 // len(calls)) - before < 3000  # kB; 100000 lost values of any kind are more


def test_other_threads_run_while_the_library_works(base):
    waits = [korvane.Instrument(base=base).globals.WaitThisManySeconds for _ in range(3)]
    threads = [threading.Thread(target=wait, args=(1,)) for wait in waits]
    begun = time.monotonic()
    for thread in threads:
        thread.start()
    turns = 0
    while any(thread.is_alive() for thread in threads):
        turns += 1
        time.sleep(0.005)
    assert time.monotonic() - begun < 2.5 and turns > 50


def blocks(document, language):
    return re.findall(rf"```{language}\n(.*?)```", (ROOT / document).read_text(), re.S)


def test_documents_run_as_printed(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    runner = doctest.DocTestRunner(optionflags=doctest.ELLIPSIS | doctest.IGNORE_EXCEPTION_DETAIL, verbose=False)
    scope = {}
    for block in blocks("docs/python.md", "pycon"):
        example = doctest.DocTestParser().get_doctest(block, scope, "docs/python.md", None, 0)
        runner.run(example, clear_globs=False)
        scope = example.globs
    assert runner.summarize(verbose=True).failed == 0
    for document in ("README.md", "docs/python.md"):
        for number, block in enumerate(blocks(document, "python")):
            (tmp_path / f"example{number}.py").write_text(block)
            run = subprocess.run([sys.executable, f"example{number}.py"], stdout=subprocess.PIPE, text=True)
            assert run.returncode == 0 and ("checks failed" not in run.stdout or "\n0 checks" in "\n" + run.stdout), run


def test_a_layer_reaches_its_caller_with_its_own_errors_and_goes(base):
    scope = {"__name__": "document"}
    exec(blocks("docs/python.md", "python")[0], scope)
    layer = scope["MyInstrument"](base)
    with korvane.Instrument(layer=layer) as q:
        assert q.setpoints[104].value == 3500
        with pytest.raises(korvane.InstrumentError, match="RuntimeError: interlock open at 5600.0 V") as raised:
            q._view.Setpoints.Write(104, 0, 0, 5600.0)
        assert isinstance(raised.value.__cause__, RuntimeError)
        with pytest.raises(korvane.Error, match="987654") as raised:
            q._view.Setpoints.Value(987654, 0, 0)
        assert raised.value.number == 9
    del q, raised
    gc.collect()
    korvane.AbortToken()  # the next handle frees those that are gone
    assert not _layer._Offered.alive


def test_stubs_are_those_of_the_tables(tmp_path):
    assert (ROOT / "python/korvane/__init__.pyi").read_text() == _stubs.stub_text()
    allowed = tmp_path / "allowed"
    allowed.write_text("korvane\\._.*\n")
    run = subprocess.run(["/usr/bin/stubtest", "korvane", "--allowlist", allowed, "--ignore-unused-allowlist"],
                         cwd=tmp_path, env={**os.environ, "MYPYPATH": str(ROOT / "python")}, stdout=subprocess.PIPE,
                         stderr=subprocess.STDOUT, text=True)
    assert run.returncode == 0, run.stdout


def test_the_package_installs_offline_and_a_wheel_carries_the_library(tmp_path):
    shutil.copytree(ROOT / "python", tmp_path / "python", ignore=shutil.ignore_patterns("__pycache__"))
    subprocess.run([sys.executable, "-m", "venv", "--system-site-packages", tmp_path / "venv"], check=True)
    environment = {key: value for key, value in os.environ.items() if key not in ("PYTHONPATH", "KORVANE_LIBRARY")}
    environment["KORVANE_WHEEL_LIBRARY"] = os.environ["KORVANE_LIBRARY"]
    python = tmp_path / "venv/bin/python3"
    subprocess.run([python, "-m", "pip", "install", "-q", "--no-index", "--no-build-isolation", tmp_path / "python"],
                   check=True, env=environment)
    run = subprocess.run([python, "-c", "import korvane; print(korvane.__version__, korvane.__file__)"], check=True,
                         cwd=tmp_path, env=environment, stdout=subprocess.PIPE, text=True)
    assert run.stdout.startswith("0.1.0") and str(tmp_path / "venv") in run.stdout

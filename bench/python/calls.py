"""What a call costs more from Python than from C++: the same members of the same library in turns, medians.

    KORVANE_LIBRARY=build/release/lib/libkorvane.so PYTHONPATH=python bench/python/calls.py build/release/bin/korvane_bench
"""
import json
import statistics
import subprocess
import sys
import tempfile
import time

began = time.perf_counter()
import numpy  # noqa: E402,F401

numpy_done = time.perf_counter()
import korvane  # noqa: E402

import_seconds = time.perf_counter() - numpy_done
TURNS = 9


def microseconds(call, calls):
    begun = time.perf_counter()
    for _ in range(calls):
        call()
    return (time.perf_counter() - begun) / calls * 1e6


def refused(call):
    def body():
        try:
            call()
        except korvane.Error:
            return
        raise RuntimeError("a search was not refused")

    return body


def from_cpp(bench):
    with tempfile.NamedTemporaryFile(suffix=".json") as out:
        subprocess.run([bench, "--benchmark_filter=^(member|refused)_with", "--benchmark_out_format=json", f"--benchmark_out={out.name}"],
                       check=True, stdout=subprocess.DEVNULL)
        medians = [b for b in json.load(open(out.name))["benchmarks"] if b.get("aggregate_name") == "median"]
    return {b["run_name"]: b["real_time"] / {"ns": 1e3, "us": 1}[b["time_unit"]] for b in medians}


def main():
    with tempfile.TemporaryDirectory() as folder:
        base = folder + "/base"
        korvane.create_base_folder(base)
        with korvane.Instrument(base=base, seed=1) as instrument:
            globals_, parser = instrument.globals, instrument.parser
            calls = {
                "member_without_arguments": (lambda: globals_.CurrentTimeSegment, 20000),
                "refused_with_one_argument": (refused(lambda: globals_.GetMSSetpointValueByIdx(9999)), 500),
                "refused_with_eight_arguments": (refused(lambda: parser.BinaryAdjustAbundanceDownUsingThisSetpoint(
                    9999, 566.89, 50000.0, 30.0, True, 0.0, 200.0, 1.0)), 500),
            }
            cpp, python = ({name: [] for name in calls} for _ in range(2))
            for _ in range(TURNS):
                for name, value in from_cpp(sys.argv[1]).items():
                    cpp[name].append(value)
                for name, (call, count) in calls.items():
                    python[name].append(microseconds(call, count))
    print("| call | C++, us | Python, us | more, us |\n|---|---|---|---|")
    more = {}
    for name in calls:
        there, here = statistics.median(cpp[name]), statistics.median(python[name])
        more[name] = here - there
        print(f"| {name.replace('_', ' ')} | {there:.2f} | {here:.2f} | {more[name]:.2f} |")
    # The one member of eight arguments measures spectra: it is refused, and what an exception costs is taken away.
    seven = more["refused_with_eight_arguments"] - more["refused_with_one_argument"]
    print(f"a call without arguments: {more['member_without_arguments']:.1f} us more (at most 5), with eight "
          f"{more['member_without_arguments'] + seven * 8 / 7:.1f} us (at most 15)")
    print(f"import korvane beyond NumPy's {numpy_done - began:.3f} s: {import_seconds:.3f} s (at most 0.1)")


if __name__ == "__main__":
    main()

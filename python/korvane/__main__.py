"""python3 -m korvane conform MODULE:CLASS [ARGUMENT...] checks a layer; python3 -m korvane stubs prints __init__.pyi."""

import importlib
import sys

from . import conform
from ._stubs import stub_text


def main(words: list) -> int:
    if words == ["stubs"]:
        print(stub_text(), end="")
        return 0
    if len(words) < 2 or words[0] != "conform" or ":" not in words[1]:
        print(__doc__, file=sys.stderr)
        return 2
    module, name = words[1].split(":", 1)
    sys.path.insert(0, "")
    checks = conform(getattr(importlib.import_module(module), name)(*words[2:]))
    for check in checks:
        print("passed" if check.passed else "FAILED", check.operation, check.check, check.detail, sep="  ")
    failed = sum(not check.passed for check in checks)
    print(f"{len(checks) - failed} of {len(checks)} checks passed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

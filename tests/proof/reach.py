"""Which tests reach which lines: every group of tests is run in a build that counts, and the counts
are looked at behind each. Coverage and mutants both live on it."""
import json
import os
import subprocess

import proof

FOLDER = proof.TOP / "build" / "coverage"
MAP = FOLDER / "reach.json"
SETTINGS = ["-DCMAKE_BUILD_TYPE=Debug", "-DKESTA_BUILD_EXAMPLES=ON",
            *(f"-DCMAKE_{language}_FLAGS_DEBUG=-O0 -g1 --coverage -fprofile-update=atomic"
              for language in ("C", "CXX"))]
MEASURED = ("src/", "softkey/", "include/", "tools/")
# They judge files as they ship, or the tree, or run the whole build once more.
ELSEWHERE = ("abi", "install", "docs", "reference", "demo", "check", "style", "prove", "bench")


def counts():
    """{(file, line): count} over everything that was run so far."""
    data = [str(path) for path in FOLDER.rglob("*.gcda")]
    sums = {}
    for begin in range(0, len(data), 40):
        said = subprocess.run(["gcov", "--json-format", "--stdout", *data[begin:begin + 40]],
                              cwd=FOLDER, check=True, capture_output=True, text=True).stdout
        for document in said.splitlines():
            report = json.loads(document)
            for file in report["files"]:
                name = os.path.normpath(os.path.join(report["current_working_directory"],
                                                     file["file"]))
                if not name.startswith(f"{proof.TOP}/"):
                    continue
                name = name[len(str(proof.TOP)) + 1:]
                if name.startswith(MEASURED):
                    for line in file["lines"]:
                        if line["count"]:
                            key = (name, line["line_number"])
                            sums[key] = sums.get(key, 0) + line["count"]
    return sums


def measure(wanted=lambda group: True):
    """Builds, runs, and returns the names of the tests that failed. The map is left in MAP."""
    proof.build(proof.TOP, FOLDER, *SETTINGS)
    for data in FOLDER.rglob("*.gcda"):
        data.unlink()
    groups = {name: tests for name, tests in proof.tests_of(FOLDER).items()
              if not name.startswith(ELSEWHERE) and wanted(name)}
    before, lines, seconds, failed = {}, {}, {}, []
    for name, tests in groups.items():
        clock = proof.Clock()
        failed += proof.failing(tests, timeout=300)
        seconds[name] = clock.seconds()
        now = counts()
        for key, count in now.items():
            if count != before.get(key):
                lines.setdefault(key[0], {}).setdefault(str(key[1]), []).append(name)
        before = now
        print(f"{seconds[name]:6.1f} s  {name}", flush=True)
    MAP.write_text(json.dumps({"seconds": seconds, "lines": lines, "failed": failed}))
    return failed

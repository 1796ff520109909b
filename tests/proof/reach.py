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
# What a sample is built of: the library and its tests.
SAMPLE = ["-DKESTA_BUILD_SOFTKEY=OFF", "-DKESTA_BUILD_TOOLS=OFF", "-DKESTA_BUILD_EXAMPLES=OFF"]
SAMPLE_TARGETS = ["src/all", "tests/library/unit/all", "tests/library/api/all"]
TARGETS = []  # everything
MEASURED = ("src/", "softkey/", "include/", "tools/")
# They judge files as they ship, or the tree, or run the whole build once more; the calls of the library
# as it is optimized; how much of the processor's time a command takes.
ELSEWHERE = ("abi", "install", "docs", "reference", "demo", "check", "style", "prove", "bench",
             "api.FailingCalls", "ukey.report.large_log_makes_a_small_report_in_time")
# Of the allocations that are failed on the way.
EACH_NTH = 60


# Whose objects hold lines that are measured; the tests' own do not, but for those of the headers.
OBJECTS = ("src", "softkey", "tools", "recorder", "tests/library/unit", "tests/face", "tests/flow",
           "examples")


def take_a_sample():
    """From now on the library alone, in a build of its own."""
    global FOLDER, MAP
    FOLDER = proof.TOP / "build" / "coverage-sample"
    MAP = FOLDER / "reach.json"
    SETTINGS.extend(SAMPLE)
    TARGETS.extend(SAMPLE_TARGETS)


def is_known():
    """Whether MAP tells of the code and the tests as they stand."""
    files = (path for folder in (*MEASURED, "tests/") for path in (proof.TOP / folder).rglob("*.[chs]*"))
    return MAP.exists() and max(path.stat().st_mtime for path in files) <= MAP.stat().st_mtime


def lines_of(report):
    """((file, line), count) of what one of gcov's reports says of measured files."""
    for file in report["files"]:
        name = os.path.normpath(os.path.join(report["current_working_directory"], file["file"]))
        name = os.path.relpath(name, proof.TOP)
        if name.startswith(MEASURED):
            for line in file["lines"]:
                if line["count"]:
                    yield (name, line["line_number"]), line["count"]


class Counts:
    """What was run so far, object by object. Only objects that ran since are read again."""

    def __init__(self):
        self.times, self.lines = {}, {}

    def newly_run(self):
        """The lines that were run since the last call."""
        data = [path for folder in OBJECTS for path in (FOLDER / folder).rglob("*.gcda")]
        data = [path for path in data if path.stat().st_size > 0 and
                self.times.get(path) != path.stat().st_mtime_ns]
        found = set()
        for path in data:
            self.times[path] = path.stat().st_mtime_ns
            said = subprocess.run(["gcov", "--json-format", "--stdout", path], cwd=FOLDER,
                                  check=True, capture_output=True, text=True).stdout
            now = {}
            for document in said.splitlines():
                for key, count in lines_of(json.loads(document)):
                    now[key] = now.get(key, 0) + count
            before = self.lines.get(path, {})
            found |= {key for key, count in now.items() if count != before.get(key)}
            self.lines[path] = now
        return found


def link_options():
    """What makes a process that leaves by _exit write its counts."""
    FOLDER.mkdir(parents=True, exist_ok=True)
    options = []
    for kind, links in (("program", ["EXE"]), ("library", ["SHARED", "MODULE"])):
        file = FOLDER / f"leave-{kind}.o"
        subprocess.run(["cc", "-c", "-fPIC", "-O1", f"-D{kind.upper()}", "-o", file,
                        proof.TOP / "tests" / "proof" / "leave.c"], check=True)
        flags = f"--coverage -Wl,--wrap=_exit,-u,__gcov_dump,--exclude-libs,libgcov.a {file}"
        if kind == "program":
            flags += " -Wl,--export-dynamic-symbol=coverage_functions"
        options += [f"-DCMAKE_{link}_LINKER_FLAGS={flags}" for link in links]
    return options


def make_room_for_counts():
    """Counts from nothing, which processes of any user may write: tests give up their rights. What the
    build no longer has counts no more."""
    subprocess.run(["ninja", "-C", FOLDER, "-t", "cleandead"], check=True, stdout=subprocess.DEVNULL)
    for data in FOLDER.rglob("*.gcda"):
        data.unlink()
    for notes in FOLDER.rglob("*.gcno"):
        if not notes.with_suffix(".o").exists():
            notes.unlink()
            continue
        data = notes.with_suffix(".gcda")
        data.touch()
        data.chmod(0o666)


def drop_empty_counts():
    for data in FOLDER.rglob("*.gcda"):
        if data.stat().st_size == 0:
            data.unlink()


def calls_fail():
    """Lines that only a failing call reaches. The tests that fail."""
    with open(FOLDER / "faults.log", "w") as log:
        done = subprocess.run([proof.TOP / "tests" / "proof" / "faults", "--once-in", FOLDER,
                               "--every", str(EACH_NTH)], stdout=log, stderr=log)
    return [] if done.returncode == 0 else [f"faults, see {log.name}"]


def measure(wanted=lambda group: True, mapped=True):
    """Builds, runs, and returns the names of the tests that failed. The map is left in MAP, unless only
    the counts are of interest: it takes as long again."""
    proof.build(proof.TOP, FOLDER, *SETTINGS, *link_options(), only=TARGETS)
    make_room_for_counts()
    groups = {name: [test for test in tests if not test.name.startswith(ELSEWHERE)]
              for name, tests in proof.tests_of(FOLDER).items() if wanted(name)}
    counts, lines, seconds, failed = Counts(), {}, {}, []
    for name, tests in groups.items():
        clock = proof.Clock()
        failed += proof.failing(tests, timeout=300)
        seconds[name] = clock.seconds()
        for file, line in counts.newly_run() if mapped else ():
            lines.setdefault(file, {}).setdefault(str(line), []).append(name)
        print(f"{seconds[name]:6.1f} s  {name}", flush=True)
    if not mapped and wanted("faults"):
        failed += calls_fail()
    drop_empty_counts()
    if mapped:
        MAP.write_text(json.dumps({"seconds": seconds, "lines": lines, "failed": failed}))
    return failed

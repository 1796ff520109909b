"""What the parts of ./prove share: the build under test, its tests, and running them."""
import argparse
import concurrent.futures
import json
import os
import pathlib
import signal
import subprocess
import time

TOP = pathlib.Path(__file__).resolve().parents[2]
JOBS = len(os.sched_getaffinity(0))


def arguments(description):
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("--quick", action="store_true", help="a sample, in a few minutes")
    return parser


def build(source, folder, *settings, only=()):
    """Configures and builds SOURCE in FOLDER, all of it or ONLY some targets. What it says stands in
    FOLDER/proof.log."""
    folder.mkdir(parents=True, exist_ok=True)
    with open(folder / "proof.log", "w") as log:
        for command in (
            ["cmake", "-S", source, "-B", folder, "-G", "Ninja", "-DKESTA_DEVELOPER=ON",
             "-DKESTA_BUILD_BENCH=OFF", "-DKESTA_BUILD_REFERENCE=OFF", *settings],
            ["cmake", "--build", folder, "--parallel", str(JOBS),
             *(word for target in only for word in ("--target", target))],
        ):
            if subprocess.run(command, stdout=log, stderr=log).returncode != 0:
                raise SystemExit(f"{command[0]} failed; see {folder / 'proof.log'}")


def plain_build(*only):
    """The build that parts without settings of their own share."""
    folder = TOP / "build" / "proof"
    build(TOP, folder, "-DCMAKE_BUILD_TYPE=RelWithDebInfo", "-DKESTA_BUILD_SOFTKEY=ON",
          "-DKESTA_BUILD_TOOLS=ON", only=only)
    return folder


class Test:
    """One test of ctest, run without ctest: that takes half a second to find out what there is."""

    def __init__(self, entry):
        properties = {p["name"]: p["value"] for p in entry["properties"]}
        self.name = entry["name"]
        # The heads of names are what tests are grouped by: a suite, a script.
        self.group = self.name.split("/(")[0].rpartition(".")[0] or self.name
        self.command = entry["command"]
        self.folder = properties["WORKING_DIRECTORY"]
        self.timeout = float(properties.get("TIMEOUT", 60))
        self.prepares = "FIXTURES_SETUP" in properties  # what others find there
        self.environment = dict(v.split("=", 1) for v in properties.get("ENVIRONMENT", []))

    def passes(self, timeout=None):
        """A test that hangs is one that fails; nothing of it is left behind."""
        process = subprocess.Popen(self.command, cwd=self.folder, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                   env={**os.environ, **self.environment}, start_new_session=True)
        try:
            return process.wait(timeout or self.timeout) == 0
        except subprocess.TimeoutExpired:
            return False
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            process.wait()


def tests_of(folder):
    listed = subprocess.run(["ctest", "--test-dir", folder, "--show-only=json-v1"],
                            check=True, capture_output=True, text=True).stdout
    found = [Test(entry) for entry in json.loads(listed)["tests"] if entry.get("command")]
    groups = {}
    for test in found:
        groups.setdefault(test.group, []).append(test)
    return groups


def failing(tests, timeout=None, stop_at_first=False):
    """The names of those of TESTS that fail; with STOP_AT_FIRST the first one found."""
    failed = []
    prepare = [test for test in tests if test.prepares]
    if prepare and len(prepare) < len(tests):
        failed = failing(prepare)
        tests = [test for test in tests if not test.prepares]
    with concurrent.futures.ThreadPoolExecutor(JOBS) as pool:
        waiting = {pool.submit(test.passes, timeout): test for test in tests}
        for done in concurrent.futures.as_completed(waiting):
            if not done.cancelled() and not done.result():
                failed.append(waiting[done].name)
                if stop_at_first:
                    for future in waiting:
                        future.cancel()
                    break
    return failed


class Clock:
    def __init__(self):
        self.started = time.monotonic()

    def seconds(self):
        return time.monotonic() - self.started

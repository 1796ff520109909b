#!/usr/bin/python3
"""Inside the sandbox, with a fresh key: kills commands at random moments and judges the file or the
state that they write. Prints the kills that left it as it was before or after, and all of them."""
import base64
import io
import json
import os
import pathlib
import random
import re
import subprocess
import sys
import time
import zipfile

FOLDER = pathlib.Path(os.environ["KESTA_PROOF_FOLDER"])
LOG = pathlib.Path("/tmp/ValtoPinpad_KESTA.log")
RECORD = re.compile(rb"\[\d\d,\d\d:\d\d:\d\d\.\d{3,6}\] [^\r\n]*: "
                    rb"\(Process is \d+, thread is -?\d+\)\r\n\t\[[^\r\n]*\]\r\n")
KEY = "FRESH001"
TEXT = str(FOLDER / "text")
OLD = b"what stood there before\n"
SIGN = ["--warning", "Pay?", "-o", "FILE"]
PLANS = [{"rules": [{"entry": "SetData", "call": n, "code": "KeyRemoved"}]} for n in (3, 4)]


def run(*command):
    return subprocess.run(command, check=True, capture_output=True).stdout


def whole_der(text):
    der = base64.b64decode(text, validate=True)
    width = der[1] & 0x7F if der[1] > 0x80 else 0
    size = int.from_bytes(der[2:2 + width], "big") if width else der[1]
    return der[0] == 0x30 and size == len(der) - 2 - width


def whole_lines(count):
    """Whether a text is that many lines, or parts of one line, of Base64."""
    def whole(text):
        parts = text.replace(b";", b"\n").split()
        return len(parts) == count and text.endswith(b"\n") and all(map(whole_der, parts))
    return whole


def keys():
    """What a command may change of the keys."""
    run("softkey", "check")
    return [(key["serial"], key["inserted"], key["triesLeft"], key["label"])
            for key in json.loads(run("softkey", "--json", "list"))["keys"]]


class File:
    """A file that a command replaces: old, or new as a whole."""

    def __init__(self, name, is_whole, *command, old=lambda: OLD):
        self.name, self.is_whole, self.command = name, is_whole, command
        self.path, self.old = FOLDER / name.replace(" ", "-"), old

    def prepare(self):
        for left in FOLDER.glob(f"{self.path.name}.*"):
            left.unlink()
        self.path.write_bytes(self.old())
        return [word.replace("FILE", str(self.path)) for word in self.command]

    def judge(self):
        """None for a file between, else whether it is the new one."""
        found = self.path.read_bytes()
        if found == self.old():
            return False
        return True if self.is_whole(found) else None


class Same(File):
    """A file that a command writes the same each time."""

    def __init__(self, name, *command):
        super().__init__(name, lambda found: found == self.wanted, *command, "-o", "FILE")
        self.wanted = run(*command)


class Requests(File):
    """Each adds pairs to the key, which is emptied now and then."""
    prepared = 0

    def prepare(self):
        self.prepared += 1
        if self.prepared % 25 == 0:
            run("ukey", "init", "--yes")
        return super().prepare()


class Recording(File):
    """A recording: the command's own calls may stand in it in part, but it can be read."""

    def judge(self):
        if not self.path.exists():
            return False
        if self.path.read_bytes() == self.old():
            return False
        shown = subprocess.run(["ukey", "trace", "show", self.path], capture_output=True)
        if shown.returncode != 0:
            print(f"{self.path.stat().st_size} bytes: {shown.stderr.decode()}", flush=True)
        return True if shown.returncode == 0 else None


class Log:
    """The library's log: whole records, however many."""
    name = "log"

    def prepare(self):
        LOG.write_bytes(b"")
        return ["ukey", "info"]

    def judge(self):
        text = LOG.read_bytes() if LOG.exists() else b""
        return len(text) > 0 if RECORD.sub(b"", text) == b"" else None


class Plan:
    name = "plan"

    def prepare(self):
        (FOLDER / "plan.json").write_text(json.dumps(PLANS[1]))
        subprocess.run(["softkey", "misbehave", "-"], input=json.dumps(PLANS[0]).encode(),
                       check=True, capture_output=True)
        return ["softkey", "misbehave", str(FOLDER / "plan.json")]

    def judge(self):
        said = run("softkey", "misbehave", "--show").decode()
        run("softkey", "misbehave", "--clear")
        return {True: True, False: False}.get(re.search(r"\b4\b", said) is not None) \
            if re.search(r"\b[34]\b", said) else None


class State:
    """A command that changes the state: as it was before, or as the command makes it."""

    def __init__(self, name, make_ready, *command, change):
        self.name, self.make_ready, self.command, self.change = name, make_ready, command, change

    def prepare(self):
        self.make_ready()
        self.before = keys()
        return list(self.command)

    def judge(self):
        now = keys()
        if now == self.before:
            return False
        return True if now == self.change(self.before) else None


def with_second(inserted):
    def ready():
        present = {key[0]: key[1] for key in keys()}
        if "SECOND" not in present:
            run("softkey", "create", "--serial", "SECOND", *([] if inserted else ["--removed"]))
        elif present["SECOND"] != inserted:
            run("softkey", "insert" if inserted else "remove", "SECOND")
    return ready


def without_second():
    if any(key[0] == "SECOND" for key in keys()):
        run("softkey", "delete", "--yes", "SECOND")


def moved(inserted):
    return lambda before: [(s, inserted if s == "SECOND" else i, t, label)
                           for s, i, t, label in before]


def enrol():
    """A key with pairs, certificates and a data object in the place of the fresh one."""
    os.environ["KESTA_SOFTKEY_NEW_PIN"] = os.environ["KESTA_SOFTKEY_PIN"]  # when it is emptied
    run("softkey", "delete", "--yes", KEY)
    run("softkey", "create", "--serial", KEY, "--certificates")
    run("ukey", "data", "set", "branch-code", "--value", "0123")
    pathlib.Path(TEXT).write_text("pay 12.50")
    pair, public, certificate, cipher = (
        str(FOLDER / name) for name in ("pair.pem", "public.pem", "encryption.pem", "cipher"))
    run("openssl", "genpkey", "-algorithm", "SM2", "-out", pair)
    run("openssl", "pkey", "-in", pair, "-pubout", "-out", public)
    run("softkey", "export-cert", "--role", "encryption", "-o", certificate, KEY)
    pathlib.Path(cipher).write_bytes(base64.b64encode(run(
        "openssl", "pkeyutl", "-encrypt", "-certin", "-inkey", certificate, "-in", TEXT)))
    run("ukey", "record", "-o", str(FOLDER / "sample.trace"), "--", "ukey", "label", "get")
    run("ukey", "trace", "show", str(FOLDER / "sample.trace"), "--html", str(FOLDER / "reference.html"))


def cases():
    sample, page = FOLDER / "sample.trace", (FOLDER / "reference.html").read_bytes()
    yield File("sign", whole_lines(1), "ukey", "sign", TEXT, *SIGN)
    yield File("batch-sign", whole_lines(2), "ukey", "batch-sign", TEXT, TEXT, *SIGN)
    yield Same("decrypt", "ukey", "decrypt", str(FOLDER / "cipher"))
    yield Same("cert get", "ukey", "cert", "get")
    yield Same("cert dn", "ukey", "cert", "dn")
    yield Same("label get", "ukey", "label", "get")
    yield Same("data get", "ukey", "data", "get", "branch-code")
    yield File("report", lambda found: zipfile.ZipFile(io.BytesIO(found)).testzip() is None, "ukey",
               "report", "-o", "FILE")
    yield File("metrics", lambda text: text.startswith(b"# ") and text.endswith(b"# EOF\n"),
               "ukey", "doctor", "--openmetrics", "--output", "FILE")
    yield File("page", lambda text: text == page, "ukey", "trace", "show", str(sample), "--html",
               "FILE")
    yield Recording("recording", None, "ukey", "record", "-o", "FILE", "--", "ukey", "label", "get",
                    old=sample.read_bytes)
    yield File("envelope", whole_lines(1), "softkey", "envelope", "--to", str(FOLDER / "public.pem"),
               "--pair", str(FOLDER / "pair.pem"), "-o", "FILE")
    yield Same("export-cert", "softkey", "export-cert", KEY)
    yield Log()
    yield Plan()
    # Behind what reads the certificates, which are gone then.
    yield Requests("request", whole_lines(2), "ukey", "request", "-o", "FILE")
    yield Requests("batch-request", whole_lines(2), "ukey", "batch-request", "-o", "FILE")
    yield State("create", without_second, "softkey", "create", "--serial", "SECOND",
                change=lambda before: before + [("SECOND", True, 6, "SECOND")])
    yield State("delete", with_second(True), "softkey", "delete", "--yes", "SECOND",
                change=lambda before: [key for key in before if key[0] != "SECOND"])
    yield State("remove", with_second(True), "softkey", "remove", "SECOND", change=moved(False))
    yield State("insert", with_second(False), "softkey", "insert", "SECOND", change=moved(True))


def undisturbed(case):
    """How long the command takes; it must do what it is to be killed for."""
    command, started = case.prepare(), time.monotonic()
    subprocess.run(command, check=True, stdin=subprocess.DEVNULL, capture_output=True)
    taken = time.monotonic() - started
    if not case.judge():
        raise SystemExit(f"{case.name}: the command does not change what is judged")
    return taken


def killed(case, longest, draw):
    """Whether the command was killed before its end, and the verdict on what it left."""
    process = subprocess.Popen(case.prepare(), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
    time.sleep(longest * draw.random())
    process.kill()
    died = process.wait() == -9
    try:
        return died, case.judge()
    except Exception as error:  # what cannot even be looked at is no whole state
        print(f"{case.name}: {error!r}", flush=True)
        return died, None


def main():
    count, seed, part, parts = map(int, sys.argv[1:])
    draw, good, total = random.Random(seed), 0, 0
    enrol()
    for case in list(cases())[part::parts]:
        kills, whole, new, attempts = 0, 0, 0, 0
        longest = undisturbed(case)
        # On both sides of the change, however few they are.
        while (kills < count or new in (0, attempts)) and attempts < count * 6:
            attempts += 1
            # Each kill may have cost a try of the PIN, as it must.
            run("softkey", "unlock", KEY)
            died, result = killed(case, longest, draw)
            if result is None:
                print(f"{case.name}: neither before nor after, kill {kills}", flush=True)
            # About half of the kills behind the change.
            longest *= 0.9 if result else 1.1
            new += bool(result)
            if died or result is None:
                kills, whole = kills + 1, whole + (result is not None)
        print(f"{case.name:13} {kills:5} kills, {whole} whole; of {attempts} commands {new} had"
              " changed it", flush=True)
        good, total = good + whole, total + kills
        if kills < count or new in (0, attempts):
            print(f"{case.name}: too few kills, or all on the same side", flush=True)
            total += 1
    print(f"commands: {good} of {total}")


main()

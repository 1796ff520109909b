#!/usr/bin/python3
"""Inside the sandbox, with a fresh key: fails calls of `ukey` and `softkey`, one in each run, and judges
what becomes of the command. Its arguments: the preloaded library, every how many places, part I of K,
whether of places that allocate nothing each is to fail, in one command. The last line is what ended well,
and how much there was."""
import mmap
import os
import pathlib
import re
import shutil
import struct
import subprocess
import sys
import time

FOLDER = pathlib.Path(os.environ["KESTA_PROOF_FOLDER"])
HOME = pathlib.Path(os.environ["KESTA_SOFTKEY_HOME"])
LOG = pathlib.Path("/tmp/ValtoPinpad_KESTA.log")
# As struct FaultRecord has it.
SLOTS, CALLS, NAME = 2048, 1 << 19, 96
NAMES_AT, CAN_FAIL_AT = 32, 32 + SLOTS * NAME
LOG_AT = CAN_FAIL_AT + SLOTS * 4
SIZE = LOG_AT + CALLS * 8
STATUSES = {"ukey": {*range(13), 20}, "softkey": {*range(8)}}
NOT_STARTED = {126, 127}  # the command that it was to run, as a shell says it
OLD = b"what stood there before\n"
PLAN = '{"rules": [{"entry": "SetData", "call": 3, "code": "KeyRemoved"}]}'


def run(*command, given=None):
    return subprocess.run(command, check=True, capture_output=True, input=given).stdout


class Record:
    """What the preloaded library tells, and is told."""

    def __init__(self):
        self.path = FOLDER / "faults"
        with open(self.path, "wb") as file:
            file.truncate(SIZE)
        with open(self.path, "r+b") as file:
            self.map = mmap.mmap(file.fileno(), SIZE)

    def name(self, slot):
        at = NAMES_AT + slot * NAME
        return self.map[at:at + NAME].split(b"\0")[0].decode()

    def start(self, target):
        self.map[:20] = struct.pack("IIIII", target, 0, 0, 0, 0)

    def result(self):
        """(calls, whether the target was reached)."""
        _, calls, failed, _ = struct.unpack("IIII", self.map[:16])
        return calls, failed

    def ended_in_openssl(self):
        return self.map[16:20] != bytes(4)

    def call(self, nth):
        return struct.unpack("II", self.map[LOG_AT + nth * 8:LOG_AT + nth * 8 + 8])

    def unsaid(self):
        slots = struct.unpack("I", self.map[12:16])[0]
        flags = struct.unpack(f"{slots}I", self.map[CAN_FAIL_AT:CAN_FAIL_AT + 4 * slots])
        return {self.name(slot) for slot in range(slots) if flags[slot] == 2}

    def allocates(self, place):
        return self.name(place[0]) in ("malloc", "calloc", "realloc")

    def chosen(self, every, seen, once):
        """The first call of each place, and unless it is a sample the last one too. Allocations come
        from the same places in many commands: once is enough. So it is for all that is to fail ONCE."""
        calls = min(self.result()[0], CALLS)
        places = {}
        for nth in range(calls):
            places.setdefault(self.call(nth), []).append(nth + 1)
        fresh = [place for place in places
                 if place not in seen or not (once or self.allocates(place))]
        seen.update(fresh)
        whole = [place for place in fresh if once and not self.allocates(place)]
        sample = [place for place in fresh if place not in whole][::every]
        return sorted({n for numbers in (places[place] for place in whole + sample)
                       for n in (numbers[0], numbers[-1] if every == 1 else numbers[0])})


class Case:
    """A command; the file that it writes, if any; whether it always says the same; whether it changes
    the state; what leaves the state where its first step ends, if it has two."""

    def __init__(self, line, given=None, steady=True, changes=False, step=None):
        self.command = line.split()
        self.given, self.steady, self.changes, self.step = given, steady, changes, step
        self.writes = "FILE" in self.command
        self.file = FOLDER / "written"

    def prepare(self):
        for left in FOLDER.glob("written*"):
            left.unlink()
        if self.writes:
            self.old = (FOLDER / "sample.trace").read_bytes() if "record" in self.command else OLD
            self.file.write_bytes(self.old)
        if self.changes:
            shutil.rmtree(HOME)
            shutil.copytree(FOLDER / "template", HOME)
            HOME.chmod(0o700)
        LOG.write_bytes((FOLDER / "log").read_bytes())

    def run(self, record, preload, target):
        self.prepare()
        record.start(target)
        command = [str(self.file) if word == "FILE" else word for word in self.command]
        return subprocess.run(
            command, cwd=FOLDER, input=self.given or b"", capture_output=True, timeout=300,
            env={**os.environ, "LD_PRELOAD": preload, "LD_BIND_NOW": "1",
                 "KESTA_FAULTS": str(record.path)})

    def state(self):
        run("softkey", "check")
        # Its media id is drawn, and a try of the PIN counts before the PIN is looked at.
        return re.sub(rb'"(mediaId":"[^"]*"|triesLeft":\d+)', b"", run("softkey", "--json", "list"))

    def observe(self, record, preload):
        self.prepare()
        self.before = self.state() if self.changes else b""
        self.whole_steps = [self.before]
        if self.step:
            run(*self.step.split())
            self.whole_steps.append(self.state())
            if self.whole_steps[0] == self.whole_steps[1]:
                return f"{self.step} changes nothing"
        usual = self.run(record, preload, 0)
        self.status, self.said = usual.returncode, usual.stdout
        self.after = self.state() if self.changes else b""
        self.new = self.file.read_bytes() if self.writes else b""
        if self.status not in (0, 11, 12):
            return f"undisturbed: status {self.status}: {usual.stderr.decode()}"
        return ""

    def judge(self, done, symbol):
        status, said = done.returncode, done.stderr.decode(errors="replace")
        wrong = []
        allowed = STATUSES[self.command[0]] | (NOT_STARTED if "--" in self.command else set())
        if status not in allowed:
            wrong.append(f"status {status}")
        if status not in (0, self.status) and not (said.strip() or done.stdout != self.said
                                                   or self.says_in_file()):
            wrong.append(f"status {status} without a word")
        if status == self.status and self.steady and done.stdout != self.said:
            wrong.append("another output, as if nothing had been")
        if self.writes:
            wrong += self.judge_file(status, said, symbol)
        if self.changes:
            state = self.state()
            if state not in (*self.whole_steps, self.after):
                wrong.append("a state between")
            if status == self.status and state != self.after:
                wrong.append("success, and nothing is changed")
        return wrong, said

    def says_in_file(self):
        """Findings go where they were asked for."""
        return self.writes and self.file.read_bytes() not in (self.old, self.new)

    def judge_file(self, status, said, symbol):
        found = self.file.read_bytes() if self.file.exists() else b""
        if status != self.status and found != self.old and (self.steady and found != self.new):
            return [f"a file between: {found[:60]}"]
        if status == self.status and (found == self.old or self.steady and found != self.new):
            return ["success, and the file is not written"]
        if len(list(FOLDER.glob("written*"))) != 1:
            return ["a file is left beside"]
        if symbol in ("mkostemp", "fsync", "rename") and self.file.name not in said:
            return ["the message does not name the file"]
        return []


def cases():
    for line in ("info", "info --json", "list", "pin info", "cert get", "cert info --json",
                 "label get", "label get -o FILE", "cert get -o FILE", "data get branch-code",
                 "error 0x5B21", "check-install", "charset UTF-8", "decrypt cipher", "--version",
                 "log", "log --json --failed", "trace show sample.trace", "help sign",
                 "trace show --html FILE sample.trace", "completion bash", "wait --timeout 0.05"):
        yield Case("ukey " + line)
    for line in ("doctor --json", "doctor --openmetrics --output FILE", "report -o FILE", "sign --text text",
                 "sign --text text -o FILE", "batch-sign two", "record -o FILE -- true",
                 "replay sample.trace -- ukey label get"):
        yield Case("ukey " + line, steady=False)
    # Two pairs are made one after the other, and the key keeps the first although the second fails.
    yield Case("ukey request -o FILE", steady=False, changes=True, step="ukey request -g sign:sm2:sm3")
    for line in ("batch-request", "import sign.pem", "label set another",
                 "data set branch-code --value 0418", "pin verify", "cert delete --type enc --yes"):
        yield Case("ukey " + line, steady=False, changes=True)
    for line in ("list", "show FRESH001", "check", "path", "screen FRESH001", "misbehave --list",
                 "export-cert -o FILE"):
        yield Case("softkey " + line)
    yield Case("softkey envelope --to enc.request --pair pair.pem -o FILE", steady=False)
    for line in ("create --serial SECOND", "remove FRESH001", "insert FRESH001", "delete --yes FRESH001",
                 "unlock FRESH001", "button refuse FRESH001", "misbehave plan.json", "misbehave --clear"):
        yield Case("softkey " + line, steady=False, changes=True)


def make_key():
    """A key with a certificate, and the files that the commands take."""
    os.chdir(FOLDER)
    for name, text in (("text", "text"), ("two", "one\ntwo\n"), ("plan.json", PLAN)):
        (FOLDER / name).write_text(text)
    run("bash", "-c", """
        set -e
        identity=distid:1234567812345678
        openssl genpkey -algorithm SM2 -out ca.key
        openssl req -x509 -new -key ca.key -sm3 -sigopt $identity -days 9 -subj /CN=Root -out ca.pem
        ukey request -g sign:sm2:sm3 --pem -o sign.csr
        ukey request -g enc:sm2:sm3 -o enc.request
        base64 -d enc.request | openssl req -inform DER -out enc.csr
        openssl genpkey -algorithm SM2 -out pair.pem
        openssl pkey -in pair.pem -pubout -out pair.pub
        issue() {
            openssl x509 -req -in "$1.csr" -CA ca.pem -CAkey ca.key -CAcreateserial -sm3 -days 9 \
                -sigopt $identity -vfyopt $identity "${@:2}" -out "$1.pem"
        }
        issue sign
        issue enc -force_pubkey pair.pub
        softkey envelope --to enc.request --pair pair.pem --with-header --out enc.key
        ukey import sign.pem
        ukey import enc.pem --key enc.key
        openssl pkeyutl -encrypt -certin -inkey enc.pem -in text | base64 >cipher
        ukey data set branch-code --value 0417
        ukey record -o sample.trace -- ukey label get
    """)
    # The days that a certificate has left are told: in its first second they are one more.
    time.sleep(1.1)
    shutil.copy(LOG, FOLDER / "log")
    shutil.copytree(HOME, FOLDER / "template")


def main():
    preload, every, part, parts, once = sys.argv[1], *map(int, sys.argv[2:6])
    only = sys.argv[6] if len(sys.argv) > 6 else ""
    make_key()
    record = Record()
    good, total, theirs, symbols, count = 0, 0, 0, set(), 0
    seen = {"ukey": set(), "softkey": set()}
    for case in list(cases())[part::parts]:
        if only not in " ".join(case.command):
            continue
        count += 1
        if problem := case.observe(record, preload):
            print(" ".join(case.command), problem, flush=True)
            total += 1
            continue
        for name in record.unsaid():
            print(f"{name}: how it fails is not said in failures.def")
            total += 1
        chosen = record.chosen(every, seen[case.command[0]], once)
        print(f"{' '.join(case.command)}: {record.result()[0]} calls, {len(chosen)} fail", flush=True)
        for target in chosen:
            try:
                done = case.run(record, preload, target)
                calls, failed = record.result()
                symbol = record.name(record.call(target - 1)[0]) if failed else ""
                wrong, said = case.judge(done, symbol)
            except Exception as error:  # what hangs, or cannot be looked at
                failed, symbol, wrong, said = True, "?", [repr(error)], ""
            if not failed:
                continue
            if record.ended_in_openssl():
                theirs += 1
                continue
            symbols.add(symbol)
            total, good = total + 1, good + (not wrong)
            if wrong:
                print(f"{' '.join(case.command)}, {symbol}, call {target}: {'; '.join(wrong)}: "
                      f"{said.strip()[:300]}", flush=True)
    print(f"symbols: {' '.join(sorted(symbols))}")
    print(f"commands: {good} of {total} in {count} commands; {theirs} ended inside OpenSSL")


main()

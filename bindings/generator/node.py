"""The Node package's made files: how each operation is called, and its types."""

import textwrap
from typing import Any, Dict, List

from . import header

PLAIN = {"number": "number", "text": "string", "pointer": "Pointer"}
RESULTS = {"bounded": "string", "probed": "string", "kept": "string", "record": "Uint8Array",
           "event": "KeyEvent"}
NOTICE = "// Made by bindings/generate from include/kesta_unified_zrkukey.h."


def name_of(parameter: Dict[str, Any]) -> str:
    return header.camel(header.parameter_words(parameter["name"]))


def operation(entry: Dict[str, Any]) -> str:
    return header.camel(header.words_of(entry["name"]))


def prototype(entry: Dict[str, Any]) -> str:
    """For the foreign-function package. What is written to is handed over by its address."""
    def written(parameter: Dict[str, Any]) -> str:
        number = "int32_t" if parameter.get("signed") else "uint32_t"
        return {"number": number, "text": "const char*"}.get(parameter["type"], "void*")
    result = "int32_t" if entry["result"] else "void"
    return f"{result} {entry['name']}({', '.join(map(written, entry['parameters']))})"


def way(entry: Dict[str, Any]) -> str:
    if entry["name"] in ("GetLastErrCode", "Finalize"):
        return entry["name"]
    if entry["output"] is None:
        return "run"
    return "batch" if entry["name"] == "Batch_Sign" else str(entry["output"]["rule"])


def operations(functions: List[Dict[str, Any]]) -> Dict[str, Any]:
    """What lib/operations.json holds."""
    made = {}
    for entry in functions:
        inputs = header.inputs(entry)
        facts: Dict[str, Any] = {
            "operation": operation(entry), "prototype": prototype(entry), "way": way(entry),
            "inputs": [p["type"] if p["type"] != "number" else "int32" if p["signed"] else "uint32"
                       for p in inputs],
            "optional": [p["type"] == "text" and not p["required"] for p in inputs],
        }
        if header.beside(entry):
            facts["beside"] = True
        if not header.initialises(entry):
            facts["initialiseFirst"] = True
        if entry["output"] and entry["output"].get("capacity"):
            facts["capacity"] = entry["output"]["capacity"]
        of = header.measured(entry)
        if of:
            facts["of"] = [p["name"] for p in inputs].index(of)
        if entry["name"] == "AsymDec":
            facts["whole"] = True
        for place, parameter in enumerate(inputs):
            check = {"requestInfo": "requestInfo", "strPriKey": "keyText"}.get(parameter["name"])
            if entry["name"] == "Batch_ImportX509Cert" and parameter["name"] == "strP7":
                check = "bundle"
            if check:
                facts["check"] = [place, check]
        made[entry["name"]] = facts
    return made


def types(functions: List[Dict[str, Any]], table: Dict[str, Any]) -> str:
    """What lib/operations.d.ts holds."""
    names = " |\n    ".join(f"'{k['name']}'" for k in table["kinds"])
    lines = [NOTICE, "", "/** What went wrong, whatever the token library's numbers are. */",
             f"export type Kind =\n    {names};", "",
             "/** A text or bytes are handed on as a copy, a Uint8Array itself. */",
             "export type Pointer = string | Uint8Array | null;", "",
             "/** A key came or went. */", "export interface KeyEvent {",
             "    kind: 'arrival' | 'removal' | 'stopped' | 'other';",
             "    /** Empty when the key that left was not there when the wait began. */",
             "    mediaId: string;",
             "    /** Of an arrived key that could not be read; else 0. */", "    code: number;", "}", "",
             "/** Ends the waiting for an operation's answer; see docs/node.md. */",
             "export interface Options {", "    signal?: AbortSignal;", "}"]
    for interface, promise, what in (
            ("AsyncOperations", True, "The library's functions under their names, off the main "
                                      "thread. Arguments in the order of C."),
            ("SyncOperations", False, "The same on the calling thread, for worker threads and "
                                      "commands: they hold up the event loop.")):
        lines += ["", f"/** {what} */", f"export interface {interface} {{"]
        for entry in functions:
            rule = entry["output"]
            result = RESULTS[rule["rule"]] if rule else "void"
            result = "number" if entry["name"] == "GetLastErrCode" else result
            if not promise and rule and rule["rule"] == "event":
                continue
            inputs = header.inputs(entry)
            parts = []
            for parameter in inputs:
                kind = PLAIN[parameter["type"]]
                optional = parameter["type"] == "text" and not parameter["required"]
                last = parameter is inputs[-1] and parameter["type"] == "pointer"
                parts.append(f"{name_of(parameter)}{'?' if last else ''}: "
                             f"{kind}{' | null' if optional else ''}")
            if promise:
                parts.append("options?: Options")
            said = entry["says"].split(": ", 1)[1].split(".")[0].strip()
            lines += [f"    /** {said[0].upper()}{said[1:]}. */"]
            line = f"{operation(entry)}({', '.join(parts)}): " \
                   f"{'Promise<' + result + '>' if promise else result};"
            lines += textwrap.wrap(line, 96, initial_indent="    ", subsequent_indent="        ")
        lines += ["}"]
    return "\n".join(lines + [""])



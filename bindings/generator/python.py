"""The Python package's made files: kinds with their exceptions, and the operations."""

import textwrap
from typing import Any, Dict, List

from . import header, tables

PLAIN = {"number": "int", "text": "str", "pointer": "Pointer"}
RESULTS = {"bounded": "str", "probed": "str", "kept": "str", "record": "bytes", "event": "Event"}


def kinds(table: Dict[str, Any]) -> str:
    lines = ['"""Kinds of failure, each with its exception."""', f"# {tables.NOTICE}", "",
             "from enum import Enum", "from typing import Dict, Type", "",
             "from ._error import KestaError", "", "", "class Kind(str, Enum):",
             '    """What went wrong, whatever the token library\'s numbers are."""', "",
             "    def __str__(self) -> str:", "        return str(self.value)", ""]
    lines += [f'    {k["name"].upper().replace("-", "_")} = "{k["name"]}"  # {k["en"]}'
              for k in table["kinds"]]
    failures = [k for k in table["kinds"] if k["name"] != "ok"]
    for kind in failures:
        sentence = kind["en"][0].upper() + kind["en"][1:]
        lines += ["", "", f'class {tables.constant(kind["name"])}(KestaError):',
                  f'    """{sentence}."""']
    lines += ["", "", "EXCEPTIONS: Dict[Kind, Type[KestaError]] = {"]
    lines += [f'    Kind.{k["name"].upper().replace("-", "_")}: {tables.constant(k["name"])},'
              for k in failures]
    return "\n".join(lines + ["}", ""])


def name_of(parameter: Dict[str, Any]) -> str:
    return "_".join(header.parameter_words(parameter["name"]))


def hint(parameter: Dict[str, Any]) -> str:
    plain = PLAIN[parameter["type"]]
    optional = parameter["type"] == "text" and not parameter["required"]
    return f"Optional[{plain}]" if optional else plain


def handed_on(operation: str, parameter: Dict[str, Any]) -> str:
    way = {"text": "self._text", "pointer": "self._pointer",
           "number": "int32" if parameter.get("signed") else "uint32"}[parameter["type"]]
    return f'{way}("{operation}",~{name_of(parameter)})'


def signature(entry: Dict[str, Any]) -> str:
    parts = ["self"]
    for parameter in header.inputs(entry):
        default = " = None" if parameter["type"] == "pointer" and entry["name"] != "Batch_Sign" else ""
        parts.append(f"{name_of(parameter)}: {hint(parameter)}{default}")
    rule = entry["output"]
    result = RESULTS[rule["rule"]] if rule else "None"
    if entry["name"] == "GetLastErrCode":
        result = "int"
    return f"def {header.snake(entry['name'])}({', '.join(parts)}) -> {result}:"


def check(entry: Dict[str, Any]) -> List[str]:
    """Inputs that must not reach the library."""
    checks = {"requestInfo": "checks.request_info", "strPriKey": "checks.key_text"}
    lines = []
    for parameter in entry["parameters"]:
        wanted = checks.get(parameter["name"])
        if entry["name"] == "Batch_ImportX509Cert" and parameter["name"] == "strP7":
            wanted = "checks.bundle"
        if wanted:
            lines.append(f'self._refuse_if("{entry["name"]}", {wanted}({name_of(parameter)}))')
    return lines


def call(entry: Dict[str, Any]) -> str:
    name, rule = entry["name"], entry["output"]
    arguments = "".join(f", {handed_on(name, p)}" for p in header.inputs(entry))
    start = f'"{name}", self._f.{name}'
    if name == "GetLastErrCode":
        return "return self._last_code()"
    if name == "Finalize":
        return "self._f.Finalize()"
    if rule is None:
        way = "beside" if header.beside(entry) else "ask" if entry["blocking"] == "person" else "run"
        return f"self._{way}({start}{arguments})"
    if rule["rule"] == "event":
        return "return self._wait()"
    if rule["rule"] in ("bounded", "record"):
        length = next(p for p in entry["parameters"] if p["type"] == "length")
        kind = "c_int" if length["signed"] else "c_uint"
        way = "beside" if header.beside(entry) else rule["rule"]
        return f'return self._{way if way != "beside" else "bounded_beside"}' \
               f'({start}, {rule["capacity"]}, {kind}{arguments})'
    if rule["rule"] == "kept":
        return f"return self._kept({start}{arguments})"
    if name == "Batch_Sign":
        return f"return self._batch({start}, data, data_list{arguments})"
    of = next(name_of(p) for p in entry["parameters"] if p["name"] == header.measured(entry))
    way = "probed_whole" if name == "AsymDec" else "probed"
    return f"return self._{way}({start}, {of}{arguments})"


def documented(entry: Dict[str, Any]) -> List[str]:
    said = entry["says"].split(": ", 1)[1].split(".")[0].strip() + "."
    said = said[0].upper() + said[1:]
    lines = textwrap.wrap(said, 88)
    for parameter in header.inputs(entry):
        if parameter["says"]:
            lines += [""] * (parameter is header.inputs(entry)[0])
            lines += textwrap.wrap(f"{name_of(parameter)}: {parameter['says']}", 88,
                                   subsequent_indent="    ")
    text = [f'"""{lines[0]}'] + lines[1:]
    return text + ['"""'] if len(text) > 1 else [text[0] + '"""']


def operations(functions: List[Dict[str, Any]]) -> str:
    lines = ['"""The library\'s functions under their names in Python, in the order of the header."""',
             "# Made by bindings/generate from include/kesta_unified_zrkukey.h.", "",
             "from ctypes import c_int, c_uint", "from typing import Optional", "",
             "from . import _checks as checks",
             "from ._caller import Caller, Event, Pointer, int32, uint32", "", "",
             "class Operations(Caller):",
             '    """Arguments in the order of C, without buffers and lengths: results are returned."""']
    for entry in functions:
        lines += [""]
        head = "    " + signature(entry)
        if len(head) > 100:
            # Broken between parameters alone.
            open_at = head.index("(") + 1
            kept = head[open_at:].replace(": ", ":~").replace(") -> ", ")~->~")
            wrapped = [part.replace("~", " ") for part in textwrap.wrap(kept, 100 - open_at)]
            lines.append(head[:open_at] + wrapped[0])
            lines += [" " * open_at + line for line in wrapped[1:]]
        else:
            lines.append(head)
        body = documented(entry) + check(entry)
        if not header.initialises(entry):
            body.append("self._initialise()")
        statement = call(entry)
        if len(statement) > 90:
            at = statement.index("(") + 1
            wrapped = textwrap.wrap(statement[at:], 86, break_long_words=False)
            body += [statement[:at]] + ["    " + line for line in wrapped]
        else:
            body.append(statement)
        lines += ["        " + line.replace("~", " ") if line else "" for line in body]
    return "\n".join(lines + [""])


def signatures(functions: List[Dict[str, Any]]) -> str:
    """The C types, for ctypes."""
    lines = ['"""The C types of the library\'s functions, as the header declares them."""',
             "# Made by bindings/generate from include/kesta_unified_zrkukey.h.", "",
             "from ctypes import POINTER, c_char_p, c_int, c_uint, c_void_p",
             "from typing import Any, Dict, List, Tuple", "",
             "# A result and the parameters. Buffers are handed over by their addresses.",
             "SIGNATURES: Dict[str, Tuple[Any, List[Any]]] = {"]
    for entry in functions:
        types = []
        for parameter in entry["parameters"]:
            number = "c_int" if parameter.get("signed") else "c_uint"
            types.append({"number": number, "length": f"POINTER({number})", "text": "c_char_p",
                          "buffer": "c_void_p", "pointer": "c_void_p"}[parameter["type"]])
        result = "c_int" if entry["result"] else "None"
        row = f'    "{entry["name"]}": ({result}, [{", ".join(types)}]),'
        if len(row) > 100:
            wrapped = textwrap.wrap(row.strip(), 92)
            lines += ["    " + wrapped[0]] + ["        " + line for line in wrapped[1:]]
        else:
            lines.append(row)
    return "\n".join(lines + ["}", ""])

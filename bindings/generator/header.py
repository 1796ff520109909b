"""The functions of the public header: their types by a C parser, their rules from their blocks.

What is found here is kept in bindings/description.json. A test makes it anew, so that no change of
the header, be it of a type or of a block, passes unseen by the bindings.
"""

import pathlib
import re
import subprocess
from typing import Any, Dict, List, Optional

from pycparser import c_ast, c_parser

TOP = pathlib.Path(__file__).resolve().parent.parent.parent
HEADER = TOP / "include/kesta_unified_zrkukey.h"
PLACES = TOP / "include/kesta/places.h"

# Capacities that the header's blocks leave open, and those where more room than the block's number
# is offered: a version text that grows, a message that is longer than the probe tells.
CAPACITIES = {
    "GetErrorMsg": 4096, "GetDriverVersion": 64, "GetDllVersion": 64, "GetVidAndPid": 64,
    "GetPrintNumber": 1024, "GetVendorInfo": 256,
}
# What may ask for the PIN although its block promises nothing but the token's answer.
MAY_ASK = {"SignHash", "AsymDec", "DelCertAndTempKey", "ImportEncX509Cert", "Batch_ImportX509Cert"}
# What does not ask the token at all, and may therefore run beside what does.
WIDTHS = {"int": (32, True), "unsigned int": (32, False), "char": (8, True)}


def declarations() -> List[c_ast.FuncDecl]:
    """The header as a C compiler sees it, parsed."""
    text = subprocess.run(
        ["cc", "-E", "-P", "-x", "c", "-std=c11", "-D__attribute__(x)=", str(HEADER)],
        check=True, capture_output=True, text=True).stdout
    parsed = c_parser.CParser().parse(text, str(HEADER))
    return [node for node in parsed.ext
            if isinstance(node, c_ast.Decl) and isinstance(node.type, c_ast.FuncDecl)]


def blocks() -> Dict[str, List[str]]:
    """The block in front of each function, line by line."""
    found = {}
    for comment, name in re.findall(r"/\*\n((?: \*[^\n]*\n)+?) \*/\nKESTA_API \w+ (\w+)\(",
                                    HEADER.read_text(encoding="utf-8")):
        found[name] = [line[3:] for line in comment.splitlines()]
    return found


def joined(lines: List[str]) -> str:
    return " ".join(line.strip() for line in lines)


def parameter_texts(block: List[str], names: List[str]) -> Dict[str, str]:
    """What the block says of each parameter. One line may name several."""
    texts: Dict[str, List[str]] = {}
    current: List[str] = []
    indent = 0
    for line in block:
        start = re.match(r"  ((?:\w+)(?:, \w+)*)  +(.*)", line)
        if start and all(name in names for name in start.group(1).split(", ")):
            current = start.group(1).split(", ")
            indent = len(line) - len(start.group(2))
            for name in current:
                texts[name] = [start.group(2)]
        elif current and line.startswith(" " * indent) and line.strip():
            for name in current:
                texts[name].append(line)
        else:
            current = []
    return {name: joined(lines) for name, lines in texts.items()}


def type_of(node: Any) -> Dict[str, Any]:
    """Width, sign and shape of a C type."""
    if isinstance(node, c_ast.PtrDecl):
        inner = node.type
        const = "const" in inner.quals
        name = " ".join(inner.type.names)
        if name == "char":
            return {"type": "text" if const else "buffer", "const": const}
        if name == "void":
            return {"type": "pointer", "const": const}
        width, signed = WIDTHS[name]
        return {"type": "length", "width": width, "signed": signed}
    width, signed = WIDTHS[" ".join(node.type.names)]
    return {"type": "number", "width": width, "signed": signed}


def capacity(name: str, text: str) -> Optional[int]:
    """The bound of an output that the block states, or the one above."""
    stated = re.search(r"at most (\d+) bytes|buffer of at least (\d+) bytes|"
                       r"answered with the fixed bound (\d+)", text)
    number = next((int(group) for group in stated.groups() if group), None) if stated else None
    return CAPACITIES.get(name, number)


def output_rule(name: str, whole: str, texts: Dict[str, str]) -> Optional[Dict[str, Any]]:
    """How the output is to be fetched. The header's words are what it is decided by."""
    said = " ".join(texts.values())
    if name == "WaitForKeyEvent":
        return {"rule": "event", "capacity": capacity(name, whole)}
    if "the requests are made and kept" in said:
        return {"rule": "kept", "nulInProbe": "WITH the NUL" in said}
    if "probe" not in said:
        return None
    record = "layout is the token library's" in whole
    rule = {"rule": "record" if record else "bounded", "capacity": capacity(name, whole)}
    if "without asking: twice the" in said or re.search(r"answered with twice", said):
        rule = {"rule": "probed"}
    rule["nulInProbe"] = "for a probe: the length WITH the NUL" in said
    rule["asksForProbe"] = "the token is asked" in said
    return rule


def blocking(name: str, whole: str) -> str:
    """no, token, person or event."""
    words = re.search(r"Blocking: ([^.]*)\.", whole)
    if words is None:
        raise ValueError(f"the block of {name} does not say whether it blocks")
    said = words.group(1)
    if said == "no":
        return "no"
    if "event" in said:
        return "event"
    return "person" if "until" in said or name in MAY_ASK else "token"


def direction(parameter: Dict[str, Any], text: str) -> str:
    if parameter["type"] in ("text", "number"):
        return "in"
    if parameter["type"] == "length":
        return "out" if "Receives" in text or "receives" in text else "inout"
    return "in" if "handed on" in text or "token library's" in text else "out"


def function(node: c_ast.Decl, block: List[str]) -> Dict[str, Any]:
    whole = joined(block)
    declared = [p for p in (node.type.args.params if node.type.args else []) if p.name]
    texts = parameter_texts(block, [p.name for p in declared])
    rule = output_rule(node.name, whole, texts)
    parameters = []
    for place in declared:
        text = texts.get(place.name, "")
        parameter = {"name": place.name, **type_of(place.type)}
        if parameter["type"] == "pointer" and rule and rule["rule"] == "record":
            parameter["type"] = "buffer"
        parameter["direction"] = direction(parameter, text)
        parameter["required"] = text.startswith("required")
        parameter["says"] = text
        parameters.append(parameter)
    result = type_of(node.type.type) if node.type.type.type.names != ["void"] else None
    return {
        "name": node.name, "result": result, "parameters": parameters, "output": rule,
        "blocking": blocking(node.name, whole), "says": whole,
    }


def description() -> List[Dict[str, Any]]:
    """All functions in the order of the header."""
    said = blocks()
    return [function(node, said[node.name]) for node in declarations()]


def limits() -> Dict[str, Any]:
    """The facts of places.h that the checks of inputs need."""
    text = PLACES.read_text(encoding="utf-8")
    header = re.search(r'kKeyHeader =\s*"(\d+)"', text)
    body = re.search(r"kKeyBuffer = (\d+);", text)
    if header is None or body is None:
        raise ValueError("places.h does not name the header of a key text and its limit")
    return {"keyHeader": header.group(1), "keyBuffer": int(body.group(1))}


def words_of(name: str) -> List[str]:
    """GetCertDN: get, cert, dn."""
    name = name.replace("UKey", "Ukey")
    return [word.lower() for word in re.findall(r"X509|[A-Z]+(?![a-z])|[A-Z][a-z]+", name)]


def snake(name: str) -> str:
    return "_".join(words_of(name))


def camel(words: List[str]) -> str:
    return words[0] + "".join(word.capitalize() for word in words[1:])


def parameter_words(name: str) -> List[str]:
    """szSN: serial; pszWarningMsg: warning, msg."""
    if name == "szSN":
        return ["serial"]
    bare = re.sub(r"^(?:psz|pul|pn|sz|str|n|p)(?=[A-Z])", "", name)
    return [word.lower() for word in re.findall(r"[A-Za-z][a-z]*\d*", bare)]


def inputs(entry: Dict[str, Any]) -> List[Dict[str, Any]]:
    """The parameters that a caller in Python or JavaScript gives."""
    return [p for p in entry["parameters"] if p["type"] not in ("buffer", "length")]


def beside(entry: Dict[str, Any]) -> bool:
    """Whether it never needs the token library, and may run beside what does."""
    return entry["blocking"] == "no" and "-101" not in entry["says"]


def initialises(entry: Dict[str, Any]) -> bool:
    """Whether the library must be initialised first, because the function would not do it."""
    return "ever initialises" not in entry["says"] or beside(entry)


def measured(entry: Dict[str, Any]) -> Optional[str]:
    """The input that a probed output's size is computed from."""
    if not entry["output"] or entry["output"]["rule"] != "probed":
        return None
    return next((p["name"] for p in entry["parameters"]
                 if p["type"] == "text" and p["required"]), None)

"""Kinds, codes and sentences: from bindings/codes.json to C++, Python and JavaScript."""

import json
from typing import Any, Dict, List

NOTICE = "Made by bindings/generate from bindings/codes.json; change it there."
OWN_CODES = {
    "KESTA_OK": 0, "KESTA_NOT_BOUND": -101, "KESTA_NOT_INITIALISED": -109,
    "KESTA_UNSUPPORTED": -300, "KESTA_BAD_ARGUMENT": -401, "KESTA_BUFFER_TOO_SMALL": -404,
}


def number(code: Any) -> int:
    """A code as a file writes it, as the signed 32-bit number that it is."""
    value = OWN_CODES.get(code) if isinstance(code, str) else code
    if value is None:
        value = int(code, 0)
    return value - (1 << 32) if value >= 1 << 31 else value


def constant(name: str) -> str:
    """no-key: NoKey."""
    return "".join(word.capitalize() for word in name.split("-"))


def quoted(text: str) -> str:
    return json.dumps(text, ensure_ascii=False)


def x_list(macro: str, rows: List[str]) -> str:
    lines = [f"#define {macro}(X)"] + [f"    X({row})" for row in rows]
    width = max(map(len, lines)) + 1
    return "\n".join(f"{line:<{width}}\\" for line in lines[:-1]) + f"\n{lines[-1]}\n"


def cpp(table: Dict[str, Any]) -> str:
    kinds = [f'k{constant(k["name"])}, "{k["name"]}", {k["exit"]}, {quoted(k["en"])}, '
             f'{quoted(k["zh"])}' for k in table["kinds"]]
    own = [f'{c["code"]}, k{constant(c["kind"])}, {quoted(c["en"])}, {quoted(c["zh"])}'
           for c in table["library"]]
    softkey = [f'{c.get("first", c.get("code"))}, {c.get("last", c.get("code"))}, '
               f'k{constant(c["kind"])}' for c in table["softkey"]["codes"]]
    sentences = [f'k{s["name"]}, {quoted(s["en"])}, {quoted(s["zh"])}' for s in table["sentences"]]
    pin = table["softkey"]["pinRecord"]
    record = ", ".join(str(pin[field]) for field in ("length", "triesLeft", "triesMost", "locked"))
    return "\n".join([
        "// Kinds of failure, codes and sentences as lists to expand.",
        f"// {NOTICE}",
        "#ifndef KESTA_UKEY_TABLES_HPP",
        "#define KESTA_UKEY_TABLES_HPP",
        "",
        "// clang-format off",
        "",
        "// enumerator, name, exit status of ukey, words in English and in Chinese",
        x_list("KESTA_UKEY_KINDS", kinds),
        "// the library's own codes: code, kind, sentence in English and in Chinese",
        x_list("KESTA_UKEY_OWN_CODES", own),
        "// the software key's codes: first, last, kind",
        x_list("KESTA_UKEY_SOFTKEY_CODES", softkey),
        "// the software key's PIN record: its length; where tries left, tries at most and the lock "
        "stand",
        f"#define KESTA_UKEY_SOFTKEY_PIN_RECORD {record}",
        "",
        "// the face's own sentences: enumerator, English, Chinese; {0} is the first word to put in",
        x_list("KESTA_UKEY_SENTENCES", sentences),
        "// clang-format on",
        "",
        "#endif",
        "",
    ])


def plain(table: Dict[str, Any]) -> Dict[str, Any]:
    """The same with numbers for codes: what Python and JavaScript read."""
    def ranges(codes: List[Dict[str, Any]]) -> List[Any]:
        return [[number(c.get("first", c.get("code"))), number(c.get("last", c.get("code"))),
                 c["kind"]] for c in codes]
    return {
        "kinds": {k["name"]: {"en": k["en"], "zh": k["zh"]} for k in table["kinds"]},
        "library": {str(number(c["code"])): {key: c[key] for key in ("kind", "en", "zh")}
                    for c in table["library"]},
        "softkey": {"codes": ranges(table["softkey"]["codes"]),
                    "pinRecord": table["softkey"]["pinRecord"]},
        "sentences": {s["name"]: {"en": s["en"], "zh": s["zh"]} for s in table["sentences"]},
    }


def example(table: Dict[str, Any]) -> str:
    """The software key's table in the form of a maker's file."""
    rows = ",\n        ".join(json.dumps(row) for row in table["softkey"]["codes"])
    record = json.dumps(table["softkey"]["pinRecord"])
    return f'{{\n    "codes": [\n        {rows}\n    ],\n    "pinRecord": {record}\n}}\n'


def page(text: str, table: Dict[str, Any]) -> str:
    """docs/codes.md with the table of kinds."""
    begin, end = "<!-- kinds -->\n", "<!-- end of kinds -->"
    rows = "| kind | what happened | exit status of `ukey` |\n| --- | --- | --- |\n"
    rows += "".join(f'| `{k["name"]}` | {k["en"]} | {k["exit"]} |\n' for k in table["kinds"])
    return text[:text.index(begin)] + begin + rows + text[text.index(end):]

"""Compares each sentence of a catalogue with its translation: holes, conversions, options, commands
in backquotes, line ends; and looks for what a page would not bear."""

import gettext
import re
import sys

KEPT = [
    r"\{\d\}",
    r"%[a-z]",
    r"(?<![\w-])--[a-z][a-z-]+",
    r"`[^`]*`",
    r"\$[A-Z_]+",
    r"0x[0-9A-F]+",
]

with open(sys.argv[1], "rb") as file:
    catalogue = gettext.GNUTranslations(file)._catalog

failed = 0
for sentence, translation in sorted(catalogue.items()):
    if not sentence:
        continue
    for pattern in KEPT:
        wanted = sorted(set(re.findall(pattern, sentence)))
        found = sorted(set(re.findall(pattern, translation)))
        if wanted != found:
            print(f"{sentence!r} has {wanted}, {translation!r} has {found}")
            failed = 1
    line_end = sentence.endswith("\n") != translation.endswith("\n")
    indent = len(sentence) - len(sentence.lstrip()) != len(translation) - len(translation.lstrip())
    if line_end or (indent and sentence != " or "):
        print(f"{translation!r} begins or ends otherwise than {sentence!r}")
        failed = 1
    if '"' not in sentence and re.search(r'["\\<&]', translation) and "<" not in sentence and "&" not in sentence:
        print(f"{translation!r} holds what HTML or JavaScript would read")
        failed = 1
sys.exit(failed)

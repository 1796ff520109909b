#!/usr/bin/env python3
"""sign: signs a text with the key, and prints the signature, Base64 of its DER form. The key shows
the warning and waits until its button is pressed; Ctrl-C ends the waiting.

usage: sign.py TEXT WARNING
"""

import sys

from kesta_ukey import KestaError, Library, PinWrong, Refused


def main() -> int:
    if len(sys.argv) != 3:
        print(__doc__)
        return 0 if "--help" in sys.argv else 2
    try:
        with Library.load().present_key() as key:
            try:
                key.verify_pin()
                print(key.sign(sys.argv[1], sys.argv[2]))
                return 0
            except PinWrong:
                tries = key.pin_tries()
                left = f", {tries.left} tries left" if tries else ""
                print(f"sign.py: the PIN is wrong{left}", file=sys.stderr)
            except Refused:
                print("sign.py: refused at the key", file=sys.stderr)
    except KestaError as error:
        print(f"sign.py: {error}", file=sys.stderr)
    except KeyboardInterrupt:
        print("sign.py: given up; the key still waits for its button", file=sys.stderr)
    return 1


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""decrypt: decrypts a text, Base64 of an SM2 cipher text, with the encryption key.

usage: decrypt.py <CIPHER-TEXT
"""

import sys

from kesta_ukey import KestaError, Library


def main() -> int:
    if len(sys.argv) != 1:
        print(__doc__)
        return 0 if "--help" in sys.argv else 2
    try:
        with Library.load().present_key() as key:
            key.verify_pin()
            print(key.asym_dec(sys.stdin.read()))
            return 0
    except KestaError as error:
        print(f"decrypt.py: {error}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main())

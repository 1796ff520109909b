#!/usr/bin/env python3
"""enrol: makes the certificate requests for a signing and an encryption pair, or installs what the
authority returned.

usage: enrol.py                                        prints the two requests, one to a line
       enrol.py SIGN.cer [ENC.envelope ENC.cer]        installs the files' contents
"""

import sys

from kesta_ukey import CertType, KestaError, Library, RequestGroup, bundle


def contents(file: str) -> str:
    with open(file, encoding="ascii") as text:
        return text.read().strip()


def main() -> int:
    if "--help" in sys.argv or len(sys.argv) not in (1, 2, 4):
        print(__doc__)
        return 0 if "--help" in sys.argv else 2
    try:
        with Library.load().present_key() as key:
            if len(sys.argv) == 1:
                groups = [RequestGroup(CertType.SIGNING), RequestGroup(CertType.ENCRYPTION)]
                print("\n".join(key.generate_cert_request(groups)))
                return 0
            signing, *encryption = map(contents, sys.argv[1:])
            key.verify_pin()
            key.batch_import_x509_cert(bundle([signing], encryption[:1], encryption[1:]))
            print("installed for", key.get_cert_dn(CertType.SIGNING))
            return 0
    except KestaError as error:
        print(f"enrol.py: {error}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main())

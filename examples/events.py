#!/usr/bin/env python3
"""events: prints a line for each key that is inserted or removed, until COUNT events have been seen
or SECONDS have passed.

usage: events.py COUNT SECONDS
exit status: 3 when it ended before COUNT events were seen.
"""

import asyncio
import sys

from kesta_ukey import KestaError, Library


async def follow(count: int) -> None:
    async with Library.load().events() as events:
        async for event in events:
            print(event.kind, event.media_id, flush=True)
            count -= 1
            if count == 0:
                break


def main() -> int:
    if len(sys.argv) != 3:
        print(__doc__)
        return 0 if "--help" in sys.argv else 2
    try:
        asyncio.run(asyncio.wait_for(follow(int(sys.argv[1])), float(sys.argv[2])))
        return 0
    except asyncio.TimeoutError:
        return 3
    except KestaError as error:
        print(f"events.py: {error}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main())

# SPDX-License-Identifier: MIT
"""A dict that follows the table that writer.py writes, beside another task of asyncio."""
import asyncio
import sys

import zorbe


async def follow(table, copy):
    unseen = set()  # since the last reset
    async for change in table.changes():
        if change.kind == "reset":  # every record follows
            unseen = set(copy)
        elif change.kind == "put":
            copy[change.key] = change.value
            unseen.discard(change.key)
        elif change.kind == "erased":
            copy.pop(change.key, None)
            unseen.discard(change.key)
        else:  # "complete": every record was delivered
            for key in unseen:
                copy.pop(key)


async def main():
    copy = {}
    with zorbe.Reader("prices") as prices:
        following = asyncio.create_task(follow(prices, copy))
        loop = asyncio.get_running_loop()
        while await loop.run_in_executor(None, sys.stdin.readline):  # each line prints the copy
            print(sorted((key, *value) for key, value in copy.items()), flush=True)
        following.cancel()


asyncio.run(main())

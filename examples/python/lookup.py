# SPDX-License-Identifier: MIT
"""Looks records up in the table that writer.py writes.
usage: lookup.py SYMBOL..."""
import sys

import zorbe


def highest(prices):
    """By NumPy: the symbol with the highest bid."""
    array = prices.to_numpy()
    return array["key"][array["bid"].argmax()].decode() if len(array) else None


with zorbe.Reader("prices") as prices:
    for symbol in sys.argv[1:]:
        quote = prices.get(symbol)
        print(symbol, f"{quote.bid} {quote.ask}" if quote else "has no record")
    print("spreads", {symbol: quote.ask - quote.bid for symbol, quote in prices.items()})
    print("highest", highest(prices))

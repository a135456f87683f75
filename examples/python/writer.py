# SPDX-License-Identifier: MIT
import sys

import zorbe

with zorbe.Writer("prices", key=zorbe.text(8), fields={"bid": "f8", "ask": "f8"}) as prices:
    for line in sys.stdin:
        symbol, bid, ask = line.split()
        prices[symbol] = (float(bid), float(ask))
        prices.publish()

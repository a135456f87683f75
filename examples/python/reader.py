# SPDX-License-Identifier: MIT
import zorbe

with zorbe.Reader("prices") as prices:
    for change in prices.changes():  # prices["ABC"].bid would look up one record
        if change.kind == "put":
            print(change.key, change.value.bid, change.value.ask, flush=True)

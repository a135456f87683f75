// SPDX-License-Identifier: MIT
//
// A table in shared memory: one process writes, any number of processes read.
//
//     struct Quote { double bid, ask; };
//     ZORBE_FIELDS(Quote, bid, ask);
//
//     Zorbe::Table::Writer<uint32_t, Quote> quotes("quotes");
//     quotes.put(7, {99.5, 100.5});
//     quotes.publish();
//
//     Zorbe::Table::Reader<uint32_t, Quote> reader("quotes");      // in another process
//     if (auto quote = reader.get(7)) show(*quote);
//     while (reader.wait(std::chrono::nanoseconds::max())) {
//       while (auto change = reader.next()) use(*change);
//     }
//
// No event loop is needed; see <zorbe/table/in_loop.h> for programs that turn one. In C, and for
// bindings to other languages, the same is zorbe_writer_open() and zorbe_reader_open(): see
// <zorbe/table/c_interface.h>.
#pragma once

#include <zorbe/table/c_interface.h>

#ifdef __cplusplus
#include <zorbe/table/threaded.h>
#endif

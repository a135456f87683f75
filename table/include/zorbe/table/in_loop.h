// SPDX-License-Identifier: MIT
//
// A table in an event loop of the contracts (<brask/platform.h>): for programs that turn one
// anyway. Everything runs on that loop's thread. Programs without a loop take <zorbe/table.h>.
//
//     Zorbe::Table::LoopWriter<uint32_t, Quote> table("quotes");
//     table.put(7, quote);                       // while the loop turns, readers are served
//
//     Zorbe::Table::LoopReader<uint32_t, Quote> reader("quotes");
//     reader.onReady([&] {                       // from the loop
//       while (auto change = reader.next()) use(*change);
//     });
#pragma once

#include <zorbe/table/view.h>

#include <functional>
#include <string>

namespace Zorbe::Table {

/// The one writer of a table: see BasicWriter. Everything happens on the thread of the loop that
/// was current when it was made; destroy it before the loop. Readers are accepted and woken, and
/// what was put is published, while the loop turns.
template <class K, class V>
class LoopWriter : public BasicWriter<K, V, WriterCore> {
 public:
  /// Becomes the writer of the table `name`. Throws Zorbe::DuplicateWriterException when there is
  /// another one (Options::waitForLock is not looked at: a loop does not wait), Error for anything
  /// else; the table that is there then stays as it was.
  explicit LoopWriter(const std::string& name, const Options& options = {})
      : BasicWriter<K, V, WriterCore>(name, options) {}
};

/// One reader of a table. It connects, follows the next writer and a table that is removed and
/// made again by itself while the loop turns, and creates nothing. Everything but its views
/// belongs to the thread of the loop that was current when it was made; destroy it before the loop.
template <class K, class V>
class LoopReader : public BasicReader<K, V, ReaderCore> {
 public:
  /// See BasicReader for what it throws.
  explicit LoopReader(const std::string& name, const Options& options = {})
      : BasicReader<K, V, ReaderCore>(name, options) {}

  /// Whether next() has something to deliver.
  bool hasNext() const { return this->core().hasNext(); }

  /// Called from the loop, on every turn for as long as next() has something to deliver. Must not
  /// destroy this object.
  void onReady(std::function<void()> function) {
    ready_ = std::make_unique<std::function<void()>>(std::move(function));
    this->core().onReady([](void* context) { (*static_cast<std::function<void()>*>(context))(); },
                         ready_.get());
  }

  /// For another thread. Only callable on the loop's thread: see View::clone.
  View<K, V> view() const { return View<K, V>(this->core().view()); }

 private:
  std::unique_ptr<std::function<void()>> ready_;
};

}  // namespace Zorbe::Table

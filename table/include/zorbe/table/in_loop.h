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
class LoopReader : public View<K, V> {
 public:
  /// Throws Error only for a name or options that cannot work: a table that is not there yet is
  /// waited for.
  explicit LoopReader(const std::string& name, const Options& options = {})
      : LoopReader(std::make_unique<ReaderCore>(name, options,
                                                Codec<K, V>(options.keyName, name).schema())) {}

  /// The next change, if there is one; never waits. Throws once for each table that this program
  /// cannot read: Error (schema, version, denied) or Zorbe::CorruptionDetectedException.
  std::optional<Change<K, V>> next() { return nextOf<K, V>(*core_); }

  /// Whether next() has something to deliver.
  bool hasNext() const { return core_->hasNext(); }

  /// Called from the loop, on every turn for as long as next() has something to deliver. Must not
  /// destroy this object.
  void onReady(std::function<void()> function) {
    ready_ = std::make_unique<std::function<void()>>(std::move(function));
    core_->onReady([](void* context) { (*static_cast<std::function<void()>*>(context))(); },
                   ready_.get());
  }

  /// For programs that only get(): looks whether another table has taken the place of this one,
  /// and maps it then. Returns whether it did.
  bool refresh() { return core_->refresh(); }

  /// How the reader stands with its table.
  State state() const { return core_->state(); }

  /// What is known about the table now. All zero while there is none.
  Info info() const { return core_->info(); }

  /// Who reads the table; nothing while there is none.
  std::optional<Status> status() const { return core_->status(); }

  /// For another thread. Only callable on the loop's thread: see View::clone.
  View<K, V> view() const { return View<K, V>(core_->view()); }

 private:
  explicit LoopReader(std::unique_ptr<ReaderCore> core)
      : View<K, V>(core->view()), core_(std::move(core)) {}

  std::unique_ptr<std::function<void()>> ready_;
  std::unique_ptr<ReaderCore> core_;
};

}  // namespace Zorbe::Table

// SPDX-License-Identifier: MIT
//
// The typed skin over the table's core: what Writer, Reader, LoopWriter and LoopReader share.
#pragma once

#include <zorbe/table/codec.h>
#include <zorbe/table/core.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace Zorbe::Table {

/// One change, as next() delivers it. `key` is set for put and erased, `value` for put; the other
/// kinds have neither.
template <class K, class V>
struct Change {
  Kind kind = Kind::reset;  ///< which of the members below are set
  K key{};                  ///< of put and erased
  V value{};                ///< of put
  uint64_t sequence = 0;    ///< of the record's last change; of the table for reset and complete
};

/// Where a key's record is: saves View::read the search. Of use for as long as the key exists,
/// also in a table that has taken the old one's place, where it is as slow as get().
template <class K>
class Handle {
 public:
  /// Made by View::find.
  Handle(const KeyWords<K>& key, const ViewCore::Place& place) : key_(key), place_(place) {}

  /// The key that was looked for.
  K key() const { return Codec<K, char>::decode(key_); }

 private:
  template <class, class>
  friend class View;

  KeyWords<K> key_;
  ViewCore::Place place_;
};

/// All records, one after another: for (const auto& [key, value] : view.scan()). Each record is
/// whole; together they are no snapshot, since the writer goes on meanwhile. One pass only; what
/// it was made from outlives it.
template <class K, class V, class Source>
class Scan {
 public:
  using Record = std::pair<K, V>;  ///< key and value

  /// @cond
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Record;
    using difference_type = std::ptrdiff_t;
    using pointer = const Record*;
    using reference = const Record&;

    Iterator() = default;
    explicit Iterator(Source& source) : source_(&source) { ++*this; }

    const Record& operator*() const { return record_; }
    const Record* operator->() const { return &record_; }
    Iterator& operator++() {
      KeyWords<K> words{};
      if (source_->scan(cursor_, words.data(), &record_.second)) {
        record_.first = Codec<K, V>::decode(words);
      } else {
        source_ = nullptr;
      }
      return *this;
    }
    void operator++(int) { ++*this; }
    friend bool operator==(const Iterator& a, const Iterator& b) { return a.source_ == b.source_; }
    friend bool operator!=(const Iterator& a, const Iterator& b) { return !(a == b); }

   private:
    Source* source_ = nullptr;
    uint64_t cursor_ = 0;
    Record record_{};
  };
  /// @endcond

  /// Made by scan(), whose object has to outlive it.
  explicit Scan(Source& source) : source_(&source) {}

  /// Reads the first record. Each call begins a pass of its own.
  Iterator begin() const { return Iterator(*source_); }
  Iterator end() const { return Iterator(); }  ///< behind the last record

 private:
  Source* source_;
};

/// One thread's way to read a table: its own copy is made with Reader::view() or clone(). Never
/// waits for the writer. Follows growth by itself, and a table in the old one's place when its
/// reader has mapped that; it may outlive the reader. Every function that reads records throws
/// Zorbe::CorruptionDetectedException when the table contradicts itself, and Error (system) when
/// a table that has grown cannot be mapped again.
template <class K, class V>
class View {
 public:
  /// Made by Reader::view() and clone().
  explicit View(ViewCore core) : core_(std::move(core)) {}

  /// The record of a key; nothing when there is none, when the key does not fit into its type,
  /// and as long as there is no table.
  std::optional<V> get(KeyArg<K> key) const {
    const auto words = Codec<K, V>::encode(key);
    if (!words) return std::nullopt;
    std::optional<V> value(std::in_place);
    if (isSeen(*words, &*value)) return value;
    if (!core_.get(words->data(), &*value)) value.reset();
    return value;
  }

  /// Whether the key has a record.
  bool contains(KeyArg<K> key) const {
    const auto words = Codec<K, V>::encode(key);
    if (!words) return false;
    return isSeen(*words, nullptr) || core_.get(words->data(), nullptr);
  }

  /// Where a key's record is; nothing when there is none.
  std::optional<Handle<K>> find(KeyArg<K> key) const {
    const auto words = Codec<K, V>::encode(key);
    if (!words) return std::nullopt;
    const Detail::Window& window = core_.window();
    const uint64_t slot = Glance(window).find(*words, nullptr);
    if (slot != Glance::kMiss)
      return Handle<K>(*words, {window.incarnation, static_cast<uint32_t>(slot)});
    const std::optional<ViewCore::Place> place = core_.find(words->data());
    if (!place) return std::nullopt;
    return Handle<K>(*words, *place);
  }

  /// Copies a record; false when it was erased, and `value` is then of no use.
  bool read(const Handle<K>& handle, V& value) const {
    const ViewCore::Place& place = handle.place_;
    return Glance(core_.window()).read(place.incarnation, place.slot, handle.key_, &value) ||
           core_.read(place, handle.key_.data(), &value);
  }

  /// All records. The view has to outlive the scan.
  Scan<K, V, ViewCore> scan() const { return Scan<K, V, ViewCore>(core_); }

  /// How many records there are: reads all of them.
  size_t size() const {
    size_t count = 0;
    KeyWords<K> key{};
    for (uint64_t cursor = 0; core_.scan(cursor, key.data(), nullptr);) ++count;
    return count;
  }

  /// Another one, for another thread. Callable from any thread.
  View clone() const { return View(core_.clone()); }

 private:
  using Glance = Detail::Glance<std::tuple_size_v<KeyWords<K>>, sizeof(V)>;

  [[gnu::always_inline]] bool isSeen(const KeyWords<K>& key, void* value) const {
    return Glance(core_.window()).find(key, value) != Glance::kMiss;
  }

  mutable ViewCore core_;
};

/// The typed part of a writer over `Core`, whose operations take bytes: what Writer and LoopWriter
/// have in common. An operation that throws leaves the table as it was.
template <class K, class V, class Core>
class BasicWriter {
 public:
  /// See Writer and LoopWriter.
  BasicWriter(const std::string& name, const Options& options)
      : name_(name), codec_(options.keyName, name), core_(name, options, codec_.schema()) {}

  /// Stores a record as a whole; visible to get() at once, to followers after publish(). Throws
  /// Error: tooLarge for a text that does not fit into the key, full, noSpace. The table then
  /// stays as it was.
  void put(KeyArg<K> key, const V& value) {
    const KeyWords<K> words = require(key);
    codec_.withBytes(value, [&](const void* bytes) { core_.put(words.data(), bytes); });
  }

  /// Erases a record; false when there is none.
  bool erase(KeyArg<K> key) {
    const auto words = Codec<K, V>::encode(key);
    return words && core_.erase(words->data());
  }

  /// Shows followers everything that was put and erased, and wakes those that sleep. What is not
  /// published is published a millisecond later, by the destructor, and before it fills a quarter
  /// of the change log.
  void publish() { core_.publish(); }

  /// The record of a key, published or not; nothing when there is none.
  std::optional<V> get(KeyArg<K> key) const {
    const auto words = Codec<K, V>::encode(key);
    std::optional<V> value(std::in_place);
    if (!words || !core_.get(words->data(), &*value)) value.reset();
    return value;
  }

  /// Whether the key has a record.
  bool contains(KeyArg<K> key) const {
    const auto words = Codec<K, V>::encode(key);
    return words && core_.get(words->data(), nullptr);
  }

  /// How many records there are: a number that the writer keeps.
  size_t size() const { return static_cast<size_t>(core_.size()); }

  /// All records. Changes made during the scan may or may not be among them.
  Scan<K, V, const Core> scan() const { return Scan<K, V, const Core>(core_); }

  /// Says where the records come from: see Info.
  void setOrigin(Origin origin) { core_.setOrigin(origin); }

 private:
  KeyWords<K> require(KeyArg<K> key) const {
    const auto words = Codec<K, V>::encode(key);
    if (words) return *words;
    if constexpr (IsText<K>::value) {
      throw Error(ErrorCode::tooLarge, name_, "'" + std::string(key) + "'",
                  "the key has " + std::to_string(key.size()) + " bytes and its type room for " +
                      std::to_string(K::kCapacity));
    }
    return {};  // only a text can be too long
  }

  std::string name_;
  Codec<K, V> codec_;
  Core core_;
};

/// The typed part of a reader over `Core`, whose operations take bytes.
template <class K, class V, class Core>
class BasicReader : public View<K, V> {
 public:
  /// The next change, if there is one; never waits. Throws once for each table that this program
  /// cannot read: Error (schema, version, denied) or Zorbe::CorruptionDetectedException.
  std::optional<Change<K, V>> next() {
    KeyWords<K> key{};
    std::optional<Change<K, V>> change(std::in_place);
    const std::optional<ReaderCore::Change> found = core_->next(key.data(), &change->value);
    if (!found) return std::nullopt;
    change->kind = found->kind;
    change->sequence = found->sequence;
    if (found->kind == Kind::put || found->kind == Kind::erased) {
      change->key = Codec<K, V>::decode(key);
    }
    return change;
  }

  /// For programs that only get(): checks whether another table has taken the place of this one,
  /// and maps it then. Returns whether it did.
  bool refresh() { return core_->refresh(); }

  /// The state of the reader, as of the last time that it followed its table.
  State state() const { return core_->state(); }

  /// What is known about the table now. All zero while there is none.
  Info info() const { return core_->info(); }

  /// Who reads the table; nothing while there is none.
  std::optional<Status> status() const { return core_->status(); }

 protected:
  /// Throws Error for a name or options that cannot work (usage), and when the process has no
  /// descriptor left (system). A table that does not exist yet is waited for.
  BasicReader(const std::string& name, const Options& options)
      : BasicReader(
            std::make_unique<Core>(name, options, Codec<K, V>(options.keyName, name).schema())) {}

  /// The operations that not every core has.
  Core& core() const { return *core_; }

 private:
  explicit BasicReader(std::unique_ptr<Core> core)
      : View<K, V>(core->view()), core_(std::move(core)) {}

  std::unique_ptr<Core> core_;
};

}  // namespace Zorbe::Table

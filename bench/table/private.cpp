// SPDX-License-Identifier: MIT
//
// In private memory: what a table costs that nobody else can read.
#include <sys/mman.h>
#include <zorbe/table/window.h>

#include <unordered_map>

#include "harness/processes.h"
#include "table/store.h"

namespace Bench {

namespace {

namespace Detail = Zorbe::Table::Detail;

// Private memory, zeroed, in pages as small as those of a file in memory.
class SmallPages {
 public:
  explicit SmallPages(size_t bytes) : bytes_(bytes) {
    memory_ = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory_ == MAP_FAILED) failed("mmap()");
    static_cast<void>(::madvise(memory_, bytes, MADV_NOHUGEPAGE));  // a kernel may have none
  }
  ~SmallPages() { static_cast<void>(::munmap(memory_, bytes_)); }
  SmallPages(const SmallPages&) = delete;
  SmallPages& operator=(const SmallPages&) = delete;

  template <class T>
  T* at() const {
    return static_cast<T*>(memory_);
  }

 private:
  void* memory_;
  size_t bytes_;
};

class Floor : public Store {
 public:
  explicit Floor(uint64_t records)
      : lines_((records + records / 3 + Detail::kLineEntries) / Detail::kLineEntries),
        lineMemory_(lines_ * sizeof(Line)),
        slotMemory_(records * sizeof(Slot)) {
    for (uint64_t number = 0; number < records; ++number) enter(number);
  }

  std::string name() const override { return "floor"; }

  std::unique_ptr<Source> open() override { return std::make_unique<Reading>(*this); }

  bool get(uint64_t key) const {
    const Detail::Hash hash = Detail::hashOf(&key, 1, kSeed);
    for (uint64_t line = Detail::homeLine(hash, lines_);;
         line = line + 1 == lines_ ? 0 : line + 1) {
      const uint64_t* entries = entries_[line].entries;
      const auto* words = reinterpret_cast<const Detail::Word*>(entries);
      uint32_t candidates = Detail::candidatesOf(words, hash.tag);
      for (; candidates != 0; candidates &= candidates - 1) {
        const auto bit = static_cast<uint32_t>(__builtin_ctz(candidates));
        const uint64_t entry = entries[bit / Detail::kBitsOfEntry];
        const Slot& slot = slots_[static_cast<uint32_t>(entry) - 1];
        if (slot.key != key) continue;
        const Record record = slot.record;
        use(record);
        return true;
      }
      if (entries[Detail::kLineEntries - 1] == 0) return false;
    }
  }

 private:
  struct alignas(64) Line {
    uint64_t entries[Detail::kLineEntries];
  };
  struct alignas(64) Slot {
    uint64_t guard, state, sequence, key;
    Record record;
  };

  class Reading : public Source {
   public:
    explicit Reading(const Floor& floor) : floor_(floor) {}
    void getAll(const uint64_t* keys, size_t count) override {
      getEach(keys, count, [this](uint64_t key) { return floor_.get(key); });
    }

   private:
    const Floor& floor_;
  };

  static constexpr uint64_t kSeed = 12345;

  void enter(uint64_t number) {
    const uint64_t key = keyOf(number);
    const Detail::Hash hash = Detail::hashOf(&key, 1, kSeed);
    slots_[number] = {0, Detail::kLive, number, key, recordOf(number)};
    for (uint64_t line = Detail::homeLine(hash, lines_);; line = (line + 1) % lines_) {
      for (uint64_t& entry : entries_[line].entries) {
        if (entry != 0) continue;
        entry = Detail::entryOf(hash, static_cast<uint32_t>(number));
        return;
      }
    }
  }

  uint64_t lines_;
  SmallPages lineMemory_;
  SmallPages slotMemory_;
  Line* entries_ = lineMemory_.at<Line>();
  Slot* slots_ = slotMemory_.at<Slot>();
};

class Map : public Store {
 public:
  explicit Map(uint64_t records) {
    for (uint64_t number = 0; number < records; ++number) map_[keyOf(number)] = recordOf(number);
  }

  std::string name() const override { return "std::unordered_map"; }

  std::unique_ptr<Source> open() override { return std::make_unique<Reading>(map_); }

 private:
  using Records = std::unordered_map<uint64_t, Record>;

  class Reading : public Source {
   public:
    explicit Reading(const Records& map) : map_(map) {}
    void getAll(const uint64_t* keys, size_t count) override {
      getEach(keys, count, [this](uint64_t key) {
        const auto found = map_.find(key);
        if (found == map_.end()) return false;
        const Record record = found->second;
        use(record);
        return true;
      });
    }

   private:
    const Records& map_;
  };

  Records map_;
};

}  // namespace

std::unique_ptr<Store> makeFloor(uint64_t records) {
  return std::make_unique<Floor>(records);
}

std::unique_ptr<Store> makeMap(uint64_t records) {
  return std::make_unique<Map>(records);
}

}  // namespace Bench

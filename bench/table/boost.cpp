// SPDX-License-Identifier: MIT
//
// A hash map in a mapped file, and a mutex of processes around each use.
#include <boost/functional/hash.hpp>
#include <boost/interprocess/allocators/allocator.hpp>
#include <boost/interprocess/managed_mapped_file.hpp>
#include <boost/interprocess/sync/interprocess_mutex.hpp>
#include <boost/interprocess/sync/interprocess_sharable_mutex.hpp>
#include <boost/interprocess/sync/scoped_lock.hpp>
#include <boost/interprocess/sync/sharable_lock.hpp>
#include <boost/unordered_map.hpp>

#include "table/store.h"

namespace Bench {

namespace {

namespace Ipc = boost::interprocess;

using Allocator =
    Ipc::allocator<std::pair<const uint64_t, Record>, Ipc::managed_mapped_file::segment_manager>;
using Records = boost::unordered_map<uint64_t, Record, boost::hash<uint64_t>,
                                     std::equal_to<uint64_t>, Allocator>;

template <class Mutex, class ReadLock>
class Shared {
 public:
  Shared(const std::string& path, uint64_t records)
      : file_(Ipc::open_or_create, path.c_str(), (size_t{16} << 20) + records * 160) {
    mutex_ = file_.find_or_construct<Mutex>("mutex")();
    records_ = file_.find_or_construct<Records>("records")(
        records, boost::hash<uint64_t>(), std::equal_to<uint64_t>(), file_.get_segment_manager());
  }

  void put(uint64_t key, const Record& record) {
    const Ipc::scoped_lock<Mutex> lock(*mutex_);
    (*records_)[key] = record;
  }

  bool get(uint64_t key) const {
    const ReadLock lock(*mutex_);
    const auto found = records_->find(key);
    if (found == records_->end()) return false;
    const Record record = found->second;
    use(record);
    return true;
  }

 private:
  Ipc::managed_mapped_file file_;
  Mutex* mutex_;
  Records* records_;
};

template <class Mutex, class ReadLock>
class BoostStore : public Store {
 public:
  BoostStore(std::string name, std::string path, uint64_t records)
      : name_(std::move(name)), path_(std::move(path)), records_(records), shared_(path_, records) {
    for (uint64_t number = 0; number < records; ++number) {
      shared_.put(keyOf(number), recordOf(number));
    }
  }

  std::string name() const override { return name_; }
  std::unique_ptr<Source> open() override { return std::make_unique<Reading>(path_, records_); }

  bool put(uint64_t key, const Record& record) override {
    shared_.put(key, record);
    return true;
  }

 private:
  class Reading : public Source {
   public:
    Reading(const std::string& path, uint64_t records) : shared_(path, records) {}
    void getAll(const uint64_t* keys, size_t count) override {
      getEach(keys, count, [this](uint64_t key) { return shared_.get(key); });
    }

   private:
    Shared<Mutex, ReadLock> shared_;
  };

  std::string name_;
  std::string path_;
  uint64_t records_;
  Shared<Mutex, ReadLock> shared_;
};

}  // namespace

std::unique_ptr<Store> makeMutex(const std::string& directory, uint64_t records) {
  using Mutex = Ipc::interprocess_mutex;
  return std::make_unique<BoostStore<Mutex, Ipc::scoped_lock<Mutex>>>(
      "Boost, mutex", directory + "/mutex", records);
}

std::unique_ptr<Store> makeSharableMutex(const std::string& directory, uint64_t records) {
  using Mutex = Ipc::interprocess_sharable_mutex;
  return std::make_unique<BoostStore<Mutex, Ipc::sharable_lock<Mutex>>>(
      "Boost, sharable mutex", directory + "/sharable", records);
}

}  // namespace Bench

// SPDX-License-Identifier: MIT
//
// LMDB with everything that makes it fast: a writable mapping, no synchronisation with the disk,
// integers as keys. A transaction for each read, since a longer one reads old records.
#include <lmdb.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

#include "harness/processes.h"
#include "table/store.h"

namespace Bench {

namespace {

void require(int code) {
  if (code != MDB_SUCCESS) throw std::runtime_error(std::string("LMDB: ") + mdb_strerror(code));
}

// One for each process: a process may not open it twice, nor use its parent's.
class Environment {
 public:
  Environment(const std::string& directory, size_t bytes) {
    require(mdb_env_create(&environment_));
    require(mdb_env_set_mapsize(environment_, bytes));
    require(mdb_env_open(environment_, directory.c_str(), MDB_NOSYNC | MDB_WRITEMAP, 0600));
    MDB_txn* transaction = nullptr;
    require(mdb_txn_begin(environment_, nullptr, 0, &transaction));
    require(mdb_dbi_open(transaction, nullptr, MDB_CREATE | MDB_INTEGERKEY, &table_));
    require(mdb_txn_commit(transaction));
  }
  ~Environment() { mdb_env_close(environment_); }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

  MDB_txn* begin(unsigned flags) const {
    MDB_txn* transaction = nullptr;
    require(mdb_txn_begin(environment_, nullptr, flags, &transaction));
    return transaction;
  }

  void put(MDB_txn* transaction, uint64_t key, Record record) const {
    MDB_val name{sizeof key, &key};
    MDB_val value{sizeof record, &record};
    require(mdb_put(transaction, table_, &name, &value, 0));
  }

  bool get(MDB_txn* transaction, uint64_t key) const {
    MDB_val name{sizeof key, &key};
    MDB_val value{};
    if (mdb_get(transaction, table_, &name, &value) != MDB_SUCCESS) return false;
    Record record;
    std::memcpy(&record, value.mv_data, sizeof record);
    use(record);
    return true;
  }

 private:
  MDB_env* environment_ = nullptr;
  MDB_dbi table_ = 0;
};

class LmdbSource : public Source {
 public:
  explicit LmdbSource(std::shared_ptr<Environment> environment)
      : environment_(std::move(environment)), transaction_(environment_->begin(MDB_RDONLY)) {
    mdb_txn_reset(transaction_);
  }
  ~LmdbSource() override { mdb_txn_abort(transaction_); }
  LmdbSource(const LmdbSource&) = delete;
  LmdbSource& operator=(const LmdbSource&) = delete;

  void getAll(const uint64_t* keys, size_t count) override {
    getEach(keys, count, [this](uint64_t key) {
      require(mdb_txn_renew(transaction_));
      const bool found = environment_->get(transaction_, key);
      mdb_txn_reset(transaction_);
      return found;
    });
  }

 private:
  std::shared_ptr<Environment> environment_;
  MDB_txn* transaction_;
};

class Lmdb : public Store {
 public:
  Lmdb(const std::string& directory, uint64_t records)
      : directory_(directory + "/lmdb"), bytes_((size_t{64} << 20) + records * 512) {
    check(::mkdir(directory_.c_str(), 0700), "mkdir()");
    environment_ = std::make_shared<Environment>(directory_, bytes_);
    MDB_txn* const transaction = environment_->begin(0);
    for (uint64_t number = 0; number < records; ++number) {
      environment_->put(transaction, keyOf(number), recordOf(number));
    }
    require(mdb_txn_commit(transaction));
  }

  std::string name() const override { return "LMDB"; }

  std::unique_ptr<Source> open() override {
    if (::getpid() == owner_) return std::make_unique<LmdbSource>(environment_);
    return std::make_unique<LmdbSource>(std::make_shared<Environment>(directory_, bytes_));
  }

  bool put(uint64_t key, const Record& record) override {
    MDB_txn* const transaction = environment_->begin(0);
    environment_->put(transaction, key, record);
    require(mdb_txn_commit(transaction));
    return true;
  }

 private:
  std::string directory_;
  size_t bytes_;
  pid_t owner_ = ::getpid();
  std::shared_ptr<Environment> environment_;
};

}  // namespace

std::unique_ptr<Store> makeLmdb(const std::string& directory, uint64_t records) {
  return std::make_unique<Lmdb>(directory, records);
}

}  // namespace Bench

// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/table.h>

#include <map>
#include <set>

/// A copy of a table that follows its changes. What it held stays in use while everything is
/// delivered again; `complete` removes what the table does not hold any more.
template <class K, class V>
class Copy {
 public:
  void apply(const Zorbe::Table::Change<K, V>& change) {
    switch (change.kind) {
      case Zorbe::Table::Kind::reset:  // every record follows
        for (const auto& [key, value] : records) unseen_.insert(key);
        break;
      case Zorbe::Table::Kind::put:
        records[change.key] = change.value;
        unseen_.erase(change.key);
        break;
      case Zorbe::Table::Kind::erased:
        records.erase(change.key);
        unseen_.erase(change.key);
        break;
      case Zorbe::Table::Kind::complete:  // every record was delivered
        for (const K& key : unseen_) records.erase(key);
        unseen_.clear();
        break;
    }
  }

  std::map<K, V> records;

 private:
  std::set<K> unseen_;  // since the last reset
};

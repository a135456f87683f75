// SPDX-License-Identifier: MIT
#include "relay/chain.h"

#include <algorithm>
#include <stdexcept>

#include "format/format.h"
#include "harness/statistics.h"

namespace Bench {

namespace {

constexpr double kPatience = 180e9;  // nanoseconds
constexpr double kLookSeconds = 0.0005;

constexpr double kSinglePause = 0.5e6;  // nanoseconds

// A writer that is asked for much publishes often.
constexpr uint64_t kPublished = 500;

Zorbe::Table::Options withRoom(Zorbe::Table::Options options, uint64_t records) {
  options.records = static_cast<size_t>(records);
  options.logEntries = static_cast<size_t>(4 * records);
  return options;
}

std::vector<std::unique_ptr<RelayProcess>> mirrorsOf(const Hosts& hosts, size_t count) {
  std::vector<std::unique_ptr<RelayProcess>> mirrors;
  for (size_t each = 0; each < count; ++each) mirrors.push_back(hosts.mirror(each));
  return mirrors;
}

}  // namespace

RelayTime operator-(const RelayTime& left, const RelayTime& right) {
  return {left.server - right.server, left.publisher - right.publisher, left.mirror - right.mirror};
}

Chain::Chain(const Hosts& hosts, uint64_t records, size_t mirrors)
    : hosts_(hosts),
      records_(records),
      publisher_(hosts.publisher()),
      mirrors_(mirrorsOf(hosts, mirrors)),
      table_(kTable, withRoom(hosts.source(), records)) {
  put(records);
}

void Chain::publishAll() {
  publisher_->release();
  turnUntil("the publisher", [this] { return publisher().finished > 0; });
  const RedisConnection server = hosts_.server().connect();
  const Zorbe::Relay::Keys keys("zorbe:", kTable);
  turnUntil("the server", [&] {
    return ask(server, {"HLEN", keys.records})->integer == static_cast<long long>(records_);
  });
}

void Chain::mirrorAll() {
  for (const auto& mirror : mirrors_) mirror->release();
  turnUntil("the mirrors", [this] {
    return std::all_of(mirrors_.begin(), mirrors_.end(),
                       [](const auto& mirror) { return mirror->report().finished > 0; });
  });
}

void Chain::put(uint64_t changes) {
  for (uint64_t each = 0; each < changes; ++each) {
    table_.put(keyOf(number_ % records_), Value{{number_, 1, 2, 3, 4, 5, 6, 7}});
    ++number_;
  }
  table_.publish();
}

void Chain::mark() {
  marks_ = {publisher().changes};
  for (const auto& mirror : mirrors_) marks_.push_back(mirror->report().changes);
}

uint64_t Chain::arrived() const {
  uint64_t least = publisher().changes - marks_.front();
  for (size_t each = 0; each < mirrors_.size(); ++each) {
    least = std::min(least, mirrors_[each]->report().changes - marks_[each + 1]);
  }
  return least;
}

void Chain::stream(uint64_t changes) {
  mark();
  for (uint64_t done = 0; done < changes; done += kPublished) {
    turnUntil("changes", [&] { return arrived() + records_ / 2 > done; });
    put(kPublished);
    loop_.turn(0);
  }
  turnUntil("the last change", [&] { return arrived() >= changes; });
  if (publisher().changes - marks_.front() != changes) throw std::runtime_error("merged changes");
}

void Chain::single(uint64_t changes) {
  mark();
  double due = nanoseconds();
  for (uint64_t done = 1; done <= changes; ++done) {
    put(1);
    due += kSinglePause;
    turnUntil("a change", [&] { return arrived() >= done && nanoseconds() >= due; });
  }
}

void Chain::turnUntil(const std::string& what, const std::function<bool()>& reached) {
  const double end = nanoseconds() + kPatience;
  while (!reached()) {
    if (nanoseconds() > end) throw std::runtime_error("waited in vain for " + what);
    loop_.turn(kLookSeconds);
  }
}

RelayTime Chain::processorTime() const {
  return {Bench::processorTime(hosts_.server().pid()), publisher_->processorTime(),
          mirrors_.empty() ? 0 : mirrors_.front()->processorTime()};
}

}  // namespace Bench

// SPDX-License-Identifier: MIT
#include "stress/relay/comparison.h"

namespace Zorbe::Test::RelayChaos {
namespace {

Table::Options optionsOf(const std::string& root) {
  Table::Options options;
  options.root = root;
  return options;
}

// The first keys only: the whole of it may be long.
constexpr size_t kShownKeys = 5;

}  // namespace

TableComparison::TableComparison(Hosts& hosts)
    : hosts_(hosts), source_(kTableName, optionsOf(hosts.sourceRoot())) {
  for (const MirrorHost& host : hosts.mirrors()) {
    copies_.push_back(std::make_unique<Reader>(kTableName, optionsOf(host.root)));
  }
}

void TableComparison::begin() {
  wanted_ = contentOf(source_);
  digest_ = digestOf(wanted_);
}

TableComparison::Content TableComparison::contentOf(Reader& reader) {
  reader.process();
  reader.refresh();
  Content content;
  for (const auto& [key, record] : reader.scan()) content[key] = record.number;
  return content;
}

uint64_t TableComparison::digestOf(const Content& content) {
  uint64_t digest = 0;
  for (const auto& [key, number] : content) digest += mix(key, number);
  return digest;
}

bool TableComparison::areEqual() {
  for (unsigned mirror = 0; mirror < copies_.size(); ++mirror) {
    if (hosts_.mirrors()[mirror].state.digest != digest_) return false;
    if (contentOf(*copies_[mirror]) != wanted_) return false;
    if (copies_[mirror]->info().origin != Table::Origin::mirrored) return false;
  }
  return true;
}

// Whether the publisher is the one who is behind, too.
std::string TableComparison::sourceState() {
  std::string text = "\nthe table has " + std::to_string(wanted_.size()) + " records at " +
                     std::to_string(source_.info().published) + ", the server " +
                     hosts_.server().ask({"HLEN", keyOnServer("records")}).value_or("no");
  const auto status = source_.status();
  if (!status) return text;
  for (const Table::Peer& peer : status->peers) {
    text += "; process " + std::to_string(peer.pid) + " is at " + std::to_string(peer.reported);
  }
  return text;
}

std::string TableComparison::difference() {
  std::string text = sourceState();
  for (unsigned mirror = 0; mirror < copies_.size(); ++mirror) text += differenceOf(mirror);
  return text;
}

std::string TableComparison::differenceOf(unsigned mirror) {
  const Content content = contentOf(*copies_[mirror]);
  const auto numberOf = [](const Content& in, Key key) {
    const auto found = in.find(key);
    return found == in.end() ? "no record" : "change " + std::to_string(found->second);
  };
  Content keys = wanted_;
  keys.insert(content.begin(), content.end());
  size_t different = 0;
  std::string text;
  for (const auto& entry : keys) {
    const std::string wanted = numberOf(wanted_, entry.first);
    const std::string found = numberOf(content, entry.first);
    if (wanted == found || ++different > kShownKeys) continue;
    text += "\n  key " + std::to_string(entry.first) + " has " + found + " instead of " + wanted;
  }
  const bool isFollowed = hosts_.mirrors()[mirror].state.digest == digest_;
  const bool isFresh = copies_[mirror]->info().origin == Table::Origin::mirrored;
  return "\n" + hosts_.mirrors()[mirror].mirror.name() + ": " + std::to_string(different) +
         " keys of " + std::to_string(keys.size()) + " differ" +
         (isFollowed ? "" : ", its reader is behind") +
         (isFresh ? "" : ", and it says that the connection is lost") + text;
}

}  // namespace Zorbe::Test::RelayChaos

// SPDX-License-Identifier: MIT
#include "status/survey.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace Zorbe::Relay {

namespace {

// Keys that the server looks at before it answers.
constexpr uint64_t kScanCount = 1000;

constexpr std::string_view kAbout = "}:about";

// A pattern that nothing but the text itself matches.
std::string literal(const std::string& text) {
  std::string pattern;
  for (const char c : text) {
    if (std::string_view("*?[]\\^").find(c) != std::string_view::npos) pattern += '\\';
    pattern += c;
  }
  return pattern;
}

std::optional<uint64_t> number(std::string_view text) {
  uint64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

// The answer to TIME.
std::optional<uint64_t> milliseconds(const Reply& time) {
  const auto seconds = number(time[0].text());
  const auto microseconds = number(time[1].text());
  if (!seconds || !microseconds) return std::nullopt;
  return *seconds * 1000 + *microseconds / 1000;
}

}  // namespace

bool ServedTable::isPublished() const {
  return isUnderstood() && silence &&
         *silence < std::chrono::duration<double>(kFreshHeartbeat).count();
}

Survey::Survey(const Session::Options& server, const std::string& prefix,
               const std::optional<std::string>& table, Brask::Platform::DebugHandler& log)
    : prefix_(prefix),
      mostAttempts_(static_cast<unsigned>(server.address.endpoints.size())),
      session_(server, *this, log) {
  if (table) names_.insert(*table);
}

bool Survey::isOver() const {
  return isDone_ || !failure().empty();
}

std::string Survey::failure() const {
  if (isDone_ || !failure_.empty()) return failure_;
  return session_.failedAttempts() < mostAttempts_ ? "" : session_.failure();
}

void Survey::sessionBegan() {
  if (!names_.empty()) return askForTables();
  askForNames("0");
}

void Survey::sessionEnded() {
  if (!isDone_ && failure_.empty()) failure_ = session_.failure();
}

// What the server refuses is a failure of the whole.
void Survey::ask(const Command& command, Connection::Answer answer) {
  session_.send(command, [this, answer = std::move(answer)](const Reply& reply) {
    const bool isOfOtherType = reply.isError() && reply.text().substr(0, 9) == "WRONGTYPE";
    if (!reply.isError() || isOfOtherType) return answer(reply);
    if (failure_.empty()) failure_ = "the server refuses: " + std::string(reply.text());
  });
}

void Survey::askForNames(const std::string& cursor) {
  Command command("SCAN");
  command.add(cursor).add("MATCH").add(literal(prefix_ + "{") + "*" + std::string(kAbout));
  ask(command.add("COUNT").add(kScanCount), [this](const Reply& reply) { takeNames(reply); });
}

void Survey::takeNames(const Reply& reply) {
  const Reply keys = reply[1];
  const size_t begin = prefix_.size() + 1;
  for (size_t i = 0; i < keys.size(); ++i) {
    const std::string_view key = keys[i].text();
    if (key.size() < begin + kAbout.size()) continue;
    names_.emplace(key.substr(begin, key.size() - begin - kAbout.size()));
  }
  const std::string cursor(reply[0].text());
  if (cursor == "0" || cursor.empty()) return askForTables();
  askForNames(cursor);
}

void Survey::askForTables() {
  for (const std::string& name : names_) tables_.emplace_back().name = name;
  ask(Command("TIME"), [this](const Reply& reply) {
    now_ = milliseconds(reply).value_or(0);
    for (ServedTable& table : tables_) askFor(table);
    ask(Command("PING"), [this](const Reply&) { finish(); });
  });
}

// Answers come in the order of the commands.
void Survey::finish() {
  const auto isMissing = [](const ServedTable& table) { return table.about.format.empty(); };
  tables_.erase(std::remove_if(tables_.begin(), tables_.end(), isMissing), tables_.end());
  isDone_ = failure_.empty();
}

void Survey::askFor(ServedTable& table) {
  const Keys keys(prefix_, table.name);
  ask(askAbout(keys), [this, &table](const Reply& reply) { takeAbout(table, reply); });
  askForNumber(Command("HLEN").add(keys.records), table.records);
  askForNumber(Command("XLEN").add(keys.changes), table.batches);
  askForNumber(Command("MEMORY").add("USAGE").add(keys.changes), table.streamBytes);
}

void Survey::askForNumber(const Command& command, std::optional<uint64_t>& number) {
  ask(command, [&number](const Reply& reply) {
    if (!reply.isError()) number = static_cast<uint64_t>(std::max<int64_t>(reply.integer(), 0));
  });
}

void Survey::takeAbout(ServedTable& table, const Reply& reply) {
  table.about = parseAbout(reply);
  const auto heartbeat = number(table.about.heartbeat);
  if (!heartbeat) return;
  table.silence = static_cast<double>(now_ - std::min(now_, *heartbeat)) / 1000;
}

}  // namespace Zorbe::Relay

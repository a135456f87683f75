// SPDX-License-Identifier: MIT
#include "stress/simulation/table/table_programs.h"

#include <zorbe/exceptions.h>

#include "stress/simulation/table/table_files.h"

namespace Zorbe::Test::Simulation {

using Table::Error;
using Table::ErrorCode;
using Table::Kind;

// ---- Writer

void TableWriterProgram::start() {
  const unsigned removals = shared_.removals;
  try {
    become();
    return;
  } catch (const DuplicateWriterException&) {
    process_.world().covered.insert("second writer refused");
  } catch (const Error& failure) {
    const bool isRoom = failure.code() != ErrorCode::noSpace;
    if (!process_.isDead() && isRoom && removals == shared_.removals) throw;
    process_.world().covered.insert(isRoom ? "directory removed under a starting writer"
                                           : "no room for a writer");
  }
  process_.leave();
}

void TableWriterProgram::become() {
  Table::Options options = shared_.options;
  options.log = &process_;
  writer_.emplace("table", options);
  if (!process_.isDead()) adopt();
}

void TableWriterProgram::adopt() {
  Numbers found;
  for (const auto& [key, cell] : writer_->scan()) {
    if (!cell.isOf(key)) process_.world().fail("a writer finds a wrong value");
    found[key] = cell.number;
  }
  const std::string wrong = shared_.oracle.takeOver(found, shared_.wasRemoved);
  if (!wrong.empty()) process_.world().fail("the next writer finds that " + wrong);
  process_.world().covered.insert(found.empty() ? "table made" : "table continued");
  writing_ = true;  // with the files in place, unless the directory was removed since
}

void TableWriterProgram::change(unsigned changes) {
  for (unsigned i = 0; i < changes && writer_ && !process_.isDead(); ++i) {
    if (!changeOne()) return;
  }
  if (writer_ && process_.world().random.percent(50)) writer_->publish();
}

bool TableWriterProgram::changeOne() {
  Random& random = process_.world().random;
  const uint64_t key = random.below(shared_.keys);
  const bool erases = random.percent(25);
  const uint64_t number = erases ? Oracle::kErased : shared_.oracle.nextNumber();
  const unsigned removals = shared_.removals;
  shared_.oracle.begin(key, number);
  if (process_.world().isTracing()) {
    process_.world().note("    " + process_.name() + " changes key " + std::to_string(key) +
                          " to " + std::to_string(number));
  }
  try {
    if (erases) {
      static_cast<void>(writer_->erase(key));
    } else {
      writer_->put(key, Cell::of(key, number));
    }
  } catch (const Error& failure) {
    if (process_.isDead()) return false;
    const bool isRoom = failure.code() != ErrorCode::noSpace;
    if (isRoom && removals == shared_.removals) throw;
    process_.world().covered.insert(isRoom ? "directory removed under a put"
                                           : "no room for a record");
    shared_.oracle.refuse();
    return false;
  }
  if (process_.isDead()) return false;
  shared_.oracle.finish();
  return true;
}

// ---- Reader

void TableReaderProgram::start() {
  Table::Options options = shared_.options;
  options.log = &process_;
  reader_.emplace("table", options);
  view_.emplace(reader_->view());
  reader_->onReady([this] { drain(); });
  started_ = true;
}

// Now and then only a little, so that the writer overruns it.
void TableReaderProgram::drain() {
  const unsigned most = process_.world().random.percent(30) ? 3 : ~0u;
  for (unsigned i = 0; i < most && takeOne(); ++i) continue;
}

bool TableReaderProgram::takeOne() {
  const auto change = reader_->next();
  if (process_.isDead() || !change) return false;
  if (change->kind == Kind::put &&
      !(change->value.isOf(change->key) && shared_.oracle.wasEver(change->value))) {
    process_.world().fail(process_.name() + " gets a wrong value");
  }
  if (process_.world().isTracing()) {
    static constexpr const char* kNames[] = {"put", "erased", "reset", "complete"};
    process_.world().note(
        "    " + process_.name() + " gets " + kNames[static_cast<int>(change->kind)] + " key " +
        std::to_string(change->key) + " number " + std::to_string(change->value.number) + " at " +
        std::to_string(change->sequence));
  }
  apply(*change);
  return true;
}

void TableReaderProgram::apply(const Table::Change<uint64_t, Cell>& change) {
  switch (change.kind) {
    case Kind::reset:
      process_.world().covered.insert(copy_.empty() ? "reset" : "reset of a copy");
      for (const auto& [key, number] : copy_) unseen_.insert(key);
      break;
    case Kind::put:
      copy_[change.key] = change.value.number;
      unseen_.erase(change.key);
      break;
    case Kind::erased:
      copy_.erase(change.key);
      unseen_.erase(change.key);
      break;
    case Kind::complete:
      for (const uint64_t key : unseen_) copy_.erase(key);
      unseen_.clear();
      break;
  }
}

void TableReaderProgram::lookUp(uint64_t key) {
  for (const Table::View<uint64_t, Cell>* from :
       {static_cast<const Table::View<uint64_t, Cell>*>(&*reader_), &std::as_const(*view_)}) {
    const size_t since = shared_.oracle.now();
    const auto found = from->get(key);
    if (!process_.isDead()) expectRight(key, found, since);
  }
}

// A reader may have a table whose directory was removed, until it has the next one.
void TableReaderProgram::expectRight(uint64_t key, const std::optional<Cell>& found, size_t since) {
  World& world = process_.world();
  if (found && !(found->isOf(key) && shared_.oracle.wasEver(*found))) {
    return world.fail(process_.name() + " looks up a wrong value");
  }
  if (shared_.removals != 0 || reader_->state() == Table::State::waiting) return;
  const uint64_t number = found ? found->number : Oracle::kErased;
  if (shared_.oracle.mayBe(key, number, since)) return;
  world.fail(process_.name() + " looks up " + std::to_string(number) + " for key " +
             std::to_string(key));
}

std::string TableReaderProgram::checkAtRest() {
  if (copy_ != shared_.oracle.finished()) {
    return "follows, and " + describe(copy_, shared_.oracle.finished());
  }
  for (uint64_t key = 0; key < shared_.keys; ++key) {
    const auto found = reader_->get(key);
    const uint64_t number = found ? found->number : Oracle::kErased;
    if (!shared_.oracle.mayBe(key, number, shared_.oracle.now())) {
      return "looks up " + std::to_string(number) + " for key " + std::to_string(key) + " at rest";
    }
  }
  return "";
}

}  // namespace Zorbe::Test::Simulation

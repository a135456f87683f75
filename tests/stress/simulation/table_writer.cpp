// SPDX-License-Identifier: MIT
#include "stress/simulation/table_writer.h"

#include <zorbe/exceptions.h>
#include <zorbe/fenix_file.h>

#include "stress/simulation/callbacks.h"

namespace Zorbe::Test::Simulation {

TableWriter::TableWriter(Process& process, const RootPath& root)
    : WriterKickSm(process, root, false), process_(process) {}

void TableWriter::begin() {
  createKickSocket();
  if (process_.isDead()) return;
  takeOver();
  if (process_.isDead()) return;
  doEnableListen();
}

void TableWriter::takeOver() {
  writing_ = true;
  const TableRef left = findTable();
  writerSequence = table_->sequence;
  replace(left);
}

// The old table is not left before its successor is in place: a writer that ends in between
// leaves one that the next writer can continue.
void TableWriter::replace(const TableRef& left) {
  placeFiles();
  if (process_.isDead()) return;
  if (left && left != table_) left->replaced = true;
}

// Continues the table of an earlier writer, or begins a new incarnation.
TableRef TableWriter::findTable() {
  World& world = process_.world();
  auto left = std::static_pointer_cast<MappedTable>(world.files.map(rootPath.fullPath("slots")));
  found_ = left != nullptr;
  if (found_ && world.random.percent(70)) {
    world.covered.insert("table continued");
    return table_ = left;
  }
  if (found_) world.covered.insert("table replaced");
  table_ = std::make_shared<MappedTable>();
  table_->fenix = ++world.lastFenix;
  return left;
}

void TableWriter::placeFiles() {
  process_.pause();
  if (process_.isDead()) return;
  World& world = process_.world();
  // A directory that is removed is created again, which ends in the next call.
  if (world.files.place(rootPath.fullPath("slots"), table_) != 0) return;
  FenixFile::write(*handler, rootPath.path, table_->fenix);
}

void TableWriter::publish(unsigned changes) {
  change(changes);
  doKickSleepers();
}

// All processes see the change of the table at once; only the writer knows the sequence.
void TableWriter::change(unsigned changes) {
  for (unsigned i = 0; i < changes; ++i) {
    process_.pause();
    if (process_.isDead()) return;
    ++table_->sequence;
    process_.pause();
    ++writerSequence;
  }
  process_.pause();
}

void TableWriter::readersChanged() {
  expectOwnCallback(process_, "readersChanged");
  reportedConnections_ = readers.size();
}

WriterProgram::WriterProgram(Process& process, const Maker& make)
    : process_(process),
      root_(process, "table", true),
      writer_(make(process, root_)),
      mounter_(std::make_unique<MounterSm>(process, "table", this)) {}

void WriterProgram::start() {
  try {
    writer_->begin();
  } catch (const Brask::Exception& refusal) {
    process_.world().note(process_.name() + " cannot start: " + refusal.what());
    process_.leave();
  }
}

// Errors and "watch deleted" have a blank, file names have none.
void WriterProgram::rootChanged(const std::string& what) {
  expectOwnCallback(process_, "rootChanged");
  changedFiles_.insert(what);
  if (what.find(' ') == std::string::npos) return;
  const bool lost = what != "watch deleted";
  process_.world().covered.insert(lost ? "events lost" : "directory restored");
  process_.request([this, lost] {
    if (lost) mounter_ = std::make_unique<MounterSm>(process_, "table", this);
    restoreFiles();
  });
}

void WriterProgram::restoreFiles() {
  try {
    if (writer_->holdsLock()) writer_->placeFiles();
  } catch (const Brask::Exception& failure) {  // removed again: reported again
    process_.world().note(process_.name() + " cannot restore: " + failure.what());
  }
}

}  // namespace Zorbe::Test::Simulation

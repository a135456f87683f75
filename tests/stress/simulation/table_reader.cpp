// SPDX-License-Identifier: MIT
#include "stress/simulation/table_reader.h"

#include <zorbe/exceptions.h>
#include <zorbe/fenix_file.h>

#include <algorithm>
#include <utility>

#include "stress/simulation/callbacks.h"

namespace Zorbe::Test::Simulation {
namespace {

constexpr double kRetrySeconds = 0.25;
constexpr double kSettleSeconds = 0.02;
constexpr uint64_t kChangesAtOnce = 3;

}  // namespace

TableReader::TableReader(ReaderProgram& program, const RootPath& root, TableRef table,
                         Reader::Counters& readerCounters)
    : ReaderKickSm(program.process(), root, readerCounters),
      program_(program),
      table_(std::move(table)) {}

uint64_t TableReader::readerSequence() {
  expectOwnCallback(program_.process(), "readerSequence");
  if (table_->replaced) {
    program_.tableReplaced();
    FenixFile::validate(*handler, rootPath.path, table_->fenix);
    return applied_;
  }
  read();
  return applied_;
}

// Reads a bounded part, and the rest on the next turn of the loop.
void TableReader::read() {
  program_.process().pause();
  const uint64_t published = table_->sequence;
  program_.process().pause();
  if (program_.process().isDead()) return;
  applied_ = std::min(published, applied_ + kChangesAtOnce);
  conquerAgain = applied_ < published;
}

// A writer that listens has its files in place: if the reader has mapped them, the writer
// understands its reports.
void TableReader::writerConnectionChanged() {
  Process& process = program_.process();
  expectOwnCallback(process, "writerConnectionChanged");
  if (process.isDead()) return;
  if (std::exchange(wasConnected_, connected) == connected)
    process.world().fail("writerConnectionChanged tells no change");
  enabled = connected;
  if (!connected) return program_.connectionLost();
  if (program_.isCurrent()) {
    sendSequence(applied_);
  } else {
    program_.tableReplaced();
  }
}

void TableReader::writerAcknowledged() {
  expectOwnCallback(program_.process(), "writerAcknowledged");
  doConquer();
}

std::string TableReader::readerName() const {
  return program_.process().name();
}

Departure::Departure(ReaderProgram& program, const RootPath& root)
    : WriterUnlockSm(program.process(), program.process().name(), root), program_(program) {}

void Departure::writerUnlocked() {
  expectOwnCallback(program_.process(), "writerUnlocked");
  program_.writerExited();
}

ReaderProgram::ReaderProgram(Process& process, Maker make)
    : process_(process),
      make_(std::move(make)),
      root_(process, "table", true),
      timer_(Brask::Platform::getTimerControl(this)) {
  Random& random = process.world().random;
  if (random.percent(50)) departure_ = std::make_unique<Departure>(*this, root_);
  if (random.percent(50)) mounter_ = std::make_unique<MounterSm>(process, "table", this);
}

void ReaderProgram::start() {
  look();
}

void ReaderProgram::timeout() {
  nextLook_ = -1;
  look();
}

// The following are called by objects that look() may replace: they only start the timer that
// calls it.
void ReaderProgram::connectionLost() {
  lookWithin(kRetrySeconds);
}

void ReaderProgram::tableReplaced() {
  usable_ = false;
  lookWithin(0.0);
}

void ReaderProgram::rootChanged(const std::string& what) {
  expectOwnCallback(process_, "rootChanged");
  changedFiles_.insert(what);
  remount_ |= what.find(' ') != std::string::npos && what != "watch deleted";
  lookWithin(kSettleSeconds);
}

void ReaderProgram::writerExited() {
  lookWithin(kRetrySeconds);
}

// May make the next look earlier, but never later.
void ReaderProgram::lookWithin(double seconds) {
  const int64_t at = process_.world().clock.after(seconds);
  if (nextLook_ >= 0 && nextLook_ <= at) return;
  nextLook_ = at;
  timer_->start(seconds);
}

void ReaderProgram::look() {
  try {
    if (std::exchange(remount_, false)) watchAgain();
    if (!usable_) leaveTable();
    if (!findWriter()) return;  // writerExited() follows
    if (!isCurrent() && !mapTable()) return lookWithin(kRetrySeconds);
    if (!reader_->isConnected()) reader_->doConnect();
    if (!reader_->isConnected()) lookWithin(kRetrySeconds);
  } catch (const Brask::Exception& failure) {
    process_.world().note(process_.name() + " looks again after " + failure.what());
    lookWithin(kRetrySeconds);
  }
}

void ReaderProgram::watchAgain() {
  mounter_ = std::make_unique<MounterSm>(process_, "table", this);
}

bool ReaderProgram::findWriter() {
  if (!departure_) return true;
  if (!departure_->seesWriter()) departure_->doConnect();
  return departure_->seesWriter();
}

bool ReaderProgram::isCurrent() {
  if (!reader_ || !usable_) return false;
  process_.pause();
  const Kernel::Files& files = process_.world().files;
  return files.map(root_.fullPath("slots")) == reader_->table() &&
         FenixFile::read(process_, root_.path) == reader_->table()->fenix;
}

// Disconnects: its reports mean nothing to another incarnation.
void ReaderProgram::leaveTable() {
  usable_ = false;
  if (reader_ && reader_->isConnected()) reader_->doCloseWriterConnection(true);
}

bool ReaderProgram::mapTable() {
  leaveTable();
  process_.pause();
  TableRef table =
      std::static_pointer_cast<MappedTable>(process_.world().files.map(root_.fullPath("slots")));
  if (!table) return false;
  reader_ = make_(*this, root_, std::move(table), counters_);
  usable_ = true;
  return isCurrent();
}

}  // namespace Zorbe::Test::Simulation

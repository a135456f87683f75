// SPDX-License-Identifier: MIT
#include "stress/sweep/scenario.h"

#include <zorbe/fenix_file.h>
#include <zorbe/util.h>

#include <filesystem>
#include <fstream>

#include "fault/fault.h"

namespace Zorbe::Test::Sweep {

namespace {

constexpr const char* kTableName = "quotes";
constexpr unsigned kFenixId = 4711;

bool exists(const std::string& path) {
  const Fault::Bypass bypass;
  std::error_code error;
  return std::filesystem::exists(path, error);
}

}  // namespace

void RootWatcher::rootChanged(const std::string& what) {
  ++changes;
  failed = failed || what.rfind("inotify", 0) == 0 || what.rfind("epoll", 0) == 0;
  recorder_.note("rootChanged: " + what);
}

Scenario::Scenario(EventRecorder& recorder, SharedTable& table, Effort effort)
    : recorder_(recorder),
      table_(table),
      turns_(effort == Effort::kNormal ? 2000 : 40),
      rounds_(effort == Effort::kNormal ? 4 : 0) {}

Scenario::~Scenario() {
  end();
}

void Scenario::run() {
  if (!begin()) return;
  openForReaders();
  refuseSecondWriter();
  publishToReaders();
  deferPasses();
  useFiles();
  replaceReader();
  removeDirectory();
  replaceWriter();
  useTimer();
  checkRecovery();
  stopLoop();
  cleanUp();
}

bool Scenario::begin() {
  if (!makeLoop()) return false;
  return tryTwice([this] { root_ = std::make_unique<RootPath>(recorder_, kTableName, true); });
}

void Scenario::openForReaders() {
  makeWatcher();
  makeWriter();
  for (auto& reader : readers_) makeReader(reader);
  makeDepartures();
  recover();
}

void Scenario::refuseSecondWriter() {
  if (!writer_) return;
  const bool taken = attempt([this] {
    TableWriter second(recorder_, *root_, table_);
    second.open();
  });
  if (taken) recorder_.note("TWO WRITERS");
}

void Scenario::publish() {
  if (writer_) attempt([this] { writer_->publish(); });
}

void Scenario::publishToReaders() {
  for (int i = 0; i < 2; ++i) {
    publish();
    recover();
  }
  if (writer_) attempt([this] { static_cast<void>(writer_->allCaughtUp()); });
}

void Scenario::deferPasses() {
  Follower* const reader = readers_[0].get();
  if (reader == nullptr) return;
  attempt([reader] { reader->notifying(false); });
  publish();
  runUntilIdle();
  tryTwice([reader] { reader->notifying(true); });
  reader->passed = [reader] { reader->conquerAgain = !reader->conquerAgain; };
  publish();
  recover();
  reader->passed = nullptr;
  reader->conquerAgain = false;
  recover();
}

void Scenario::useFiles() {
  const std::string& dir = root_->path;
  const bool written = attempt([&] { FenixFile::write(recorder_, dir, kFenixId); });
  if (written) attempt([&] { FenixFile::validate(recorder_, dir, kFenixId); });
  attempt([&] { Util::touch(recorder_, root_->fullPath("slots")); });
  attempt([&] { Util::memSize(recorder_, root_->fullPath("slots")); });
  attempt([&] { Util::writeCorruptionFile(recorder_, dir, "a test"); });
  attempt([&] { root_->removeFile("corruption-detected"); });
  recover();
}

void Scenario::replaceReader() {
  readers_[1].reset();
  runUntilIdle();
  makeReader(readers_[1]);
  recover();
}

void Scenario::removeDirectory() {
  {
    const Fault::Bypass bypass;
    std::filesystem::remove_all(root_->path);
  }
  recover();
}

void Scenario::replaceWriter() {
  writer_.reset();
  runUntilIdle();
  if (Follower* const reader = readers_[0].get()) attempt([reader] { reader->doConnect(); });
  if (departures_) attempt([this] { departures_->timeout(); });
  attempt([this] { static_cast<void>(loop_->fd()); });  // from here on it can be polled
  makeWriter();
  recover();
}

void Scenario::useTimer() {
  attempt([this] {
    TimerProbe timer;
    timer.control->start(0.0005);
    for (int i = 0; i < 50 && timer.timeouts == 0; ++i) loop_->turn(0.1);
  });
  runUntilIdle();
}

void Scenario::checkRecovery() {
  publish();
  recover();
  recovered_ = isComplete() && (observesChanges() || (makeWatcher(), observesChanges()));
}

bool Scenario::observesChanges() {
  if (!watcher_) return false;
  const unsigned before = watcher_->changes;
  {
    const Fault::Bypass bypass;
    std::ofstream(root_->path + "/fenix") << kFenixId;
  }
  runUntilIdle();
  return watcher_->changes > before;
}

void Scenario::stopLoop() {
  loop_->stop();
  if (!attempt([this] { loop_->run(); })) runUntilIdle();
}

void Scenario::cleanUp() {
  for (const char* file : {"fenix", "last-owner", "slots"}) {
    attempt([&] { root_->removeFile(file); });
  }
  attempt([this] { root_->cleanup(); });
}

void Scenario::end() {
  readers_[0].reset();
  writer_.reset();
  departures_.reset();
  watcher_.reset();
  readers_[1].reset();
  root_.reset();
  loop_.reset();
}

bool Scenario::makeLoop() {
  return tryTwice([this] { loop_ = std::make_unique<Brask::Linux::EventLoop>(); });
}

void Scenario::makeWriter() {
  tryTwice([this] {
    writer_.reset();
    auto writer = std::make_unique<TableWriter>(recorder_, *root_, table_);
    writer->open();
    writer_ = std::move(writer);
  });
}

void Scenario::makeReader(std::unique_ptr<Follower>& reader) {
  tryTwice([&] { reader = std::make_unique<Follower>(recorder_, *root_, table_); });
  if (reader) attempt([&] { reader->doConnect(); });
}

void Scenario::makeDepartures() {
  tryTwice([this] { departures_ = std::make_unique<Departures>(recorder_, *root_); });
  if (departures_) attempt([this] { departures_->watch(); });
}

void Scenario::makeWatcher() {
  watcher_.reset();
  tryTwice([this] { watcher_ = std::make_unique<RootWatcher>(recorder_, kTableName); });
}

// Until two turns in a row have nothing to do: a signal may end one of them.
void Scenario::runUntilIdle() {
  unsigned idle = 0;
  for (unsigned turn = 0; turn < turns_; ++turn) {
    bool ran = true;
    attempt([&] { ran = loop_->turn(0); });
    idle = ran ? 0 : idle + 1;
    if (idle == 2) return;
  }
  neverIdle_ = true;
}

void Scenario::recover() {
  runUntilIdle();
  for (unsigned round = 0; round < rounds_ && !isComplete(); ++round) {
    repair();
    runUntilIdle();
  }
}

bool Scenario::isUpToDate(const Follower& reader) const {
  return reader.isConnected() && reader.acknowledged && reader.at() == table_.sequence();
}

bool Scenario::isComplete() const {
  if (!writer_ || !departures_ || !departures_->isWatching() || !watcher_ || watcher_->failed) {
    return false;
  }
  for (const auto& reader : readers_) {
    if (!reader || !isUpToDate(*reader)) return false;
  }
  return writer_->sleepingReaders.size() == readers_.size() && exists(root_->path);
}

// What a client does periodically about failures, reported or not.
void Scenario::repair() {
  for (auto& reader : readers_) {
    if (!reader) {
      makeReader(reader);
    } else {
      repairReader(*reader);
    }
  }
  if (!departures_) makeDepartures();
  if (departures_ && !departures_->isWatching()) {
    attempt([this] {
      departures_->doDisconnect();  // it may have thrown when it was connected already
      departures_->watch();
    });
  }
  if (!writer_) makeWriter();
  if (!watcher_ || watcher_->failed || !exists(root_->path)) makeWatcher();
}

void Scenario::repairReader(Follower& reader) {
  if (reader.isConnected() && !reader.acknowledged) {
    attempt([&] { reader.doCloseWriterConnection(true); });
  }
  if (!reader.isConnected()) {
    attempt([&] { reader.doConnect(); });
  } else {
    attempt([&] { reader.doConquer(); });
  }
}

}  // namespace Zorbe::Test::Sweep

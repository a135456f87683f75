// SPDX-License-Identifier: MIT
#include "stress/sweep/life.h"

#include <zorbe/fenix_file.h>
#include <zorbe/util.h>

#include <filesystem>
#include <fstream>

#include "fault/fault.h"

namespace Zorbe::Test::Sweep {

namespace {

constexpr const char* tableName = "quotes";
constexpr unsigned fenixId = 4711;

bool exists(const std::string& path) {
  const Fault::Bypass bypass;
  std::error_code error;
  return std::filesystem::exists(path, error);
}

}  // namespace

void Watcher::rootChanged(const std::string& what) {
  ++changes;
  failed = failed || what.rfind("inotify", 0) == 0 || what.rfind("epoll", 0) == 0;
  witness_.note("rootChanged: " + what);
}

Life::Life(Witness& witness, SharedTable& table, Effort effort)
    : witness_(witness),
      table_(table),
      turns_(effort == Effort::normal ? 2000 : 40),
      rounds_(effort == Effort::normal ? 4 : 0) {}

Life::~Life() {
  end();
}

void Life::live() {
  if (!begin()) return;
  openForReaders();
  refuseSecondWriter();
  publishToReaders();
  deferPasses();
  useFiles();
  exchangeReader();
  loseDirectory();
  changeWriter();
  useTimer();
  checkRecovery();
  stopLoop();
  cleanUp();
}

bool Life::begin() {
  if (!makeLoop()) return false;
  return twice([this] { root_ = std::make_unique<RootPath>(witness_, tableName, true); });
}

void Life::openForReaders() {
  makeWatcher();
  makeWriter();
  for (auto& reader : readers_) makeReader(reader);
  makeDepartures();
  settle();
}

void Life::refuseSecondWriter() {
  if (!writer_) return;
  const bool taken = attempt([this] {
    TableWriter second(witness_, *root_, table_);
    second.open();
  });
  if (taken) witness_.note("TWO WRITERS");
}

void Life::publish() {
  if (writer_) attempt([this] { writer_->publish(); });
}

void Life::publishToReaders() {
  for (int i = 0; i < 2; ++i) {
    publish();
    settle();
  }
  if (writer_) attempt([this] { static_cast<void>(writer_->allCaughtUp()); });
}

void Life::deferPasses() {
  Follower* const reader = readers_[0].get();
  if (reader == nullptr) return;
  attempt([reader] { reader->notifying(false); });
  publish();
  pump();
  twice([reader] { reader->notifying(true); });
  reader->passed = [reader] { reader->conquerAgain = !reader->conquerAgain; };
  publish();
  settle();
  reader->passed = nullptr;
  reader->conquerAgain = false;
  settle();
}

void Life::useFiles() {
  const std::string& dir = root_->path;
  const bool written = attempt([&] { FenixFile::write(witness_, dir, fenixId); });
  if (written) attempt([&] { FenixFile::validate(witness_, dir, fenixId); });
  attempt([&] { Util::touch(witness_, root_->fullPath("slots")); });
  attempt([&] { Util::memSize(witness_, root_->fullPath("slots")); });
  attempt([&] { Util::writeCorruptionFile(witness_, dir, "a test"); });
  attempt([&] { root_->removeFile("corruption-detected"); });
  settle();
}

void Life::exchangeReader() {
  readers_[1].reset();
  pump();
  makeReader(readers_[1]);
  settle();
}

void Life::loseDirectory() {
  {
    const Fault::Bypass bypass;
    std::filesystem::remove_all(root_->path);
  }
  settle();
}

void Life::changeWriter() {
  writer_.reset();
  pump();
  if (Follower* const reader = readers_[0].get()) attempt([reader] { reader->doConnect(); });
  if (departures_) attempt([this] { departures_->timeout(); });
  attempt([this] { static_cast<void>(loop_->fd()); });  // from here on it can be polled
  makeWriter();
  settle();
}

void Life::useTimer() {
  bool expired = false;
  attempt([&] {
    Pause pause([&expired] { expired = true; });
    pause.start(0.0005);
    for (int i = 0; i < 50 && !expired; ++i) loop_->turn(0.1);
  });
  pump();
}

void Life::checkRecovery() {
  publish();
  settle();
  recovered_ = content() && (hearsOfChanges() || (makeWatcher(), hearsOfChanges()));
}

bool Life::hearsOfChanges() {
  if (!watcher_) return false;
  const unsigned before = watcher_->changes;
  {
    const Fault::Bypass bypass;
    std::ofstream(root_->path + "/fenix") << fenixId;
  }
  pump();
  return watcher_->changes > before;
}

void Life::stopLoop() {
  loop_->stop();
  if (!attempt([this] { loop_->run(); })) pump();
}

void Life::cleanUp() {
  for (const char* file : {"fenix", "last-owner", "slots"}) {
    attempt([&] { root_->removeFile(file); });
  }
  attempt([this] { root_->cleanup(); });
}

void Life::end() {
  readers_[0].reset();
  writer_.reset();
  departures_.reset();
  watcher_.reset();
  readers_[1].reset();
  root_.reset();
  loop_.reset();
}

bool Life::makeLoop() {
  return twice([this] { loop_ = std::make_unique<Brask::Linux::EventLoop>(); });
}

void Life::makeWriter() {
  twice([this] {
    writer_.reset();
    auto writer = std::make_unique<TableWriter>(witness_, *root_, table_);
    writer->open();
    writer_ = std::move(writer);
  });
}

void Life::makeReader(std::unique_ptr<Follower>& reader) {
  twice([&] { reader = std::make_unique<Follower>(witness_, *root_, table_); });
  if (reader) attempt([&] { reader->doConnect(); });
}

void Life::makeDepartures() {
  twice([this] { departures_ = std::make_unique<Departures>(witness_, *root_); });
  if (departures_) attempt([this] { departures_->watch(); });
}

void Life::makeWatcher() {
  watcher_.reset();
  twice([this] { watcher_ = std::make_unique<Watcher>(witness_, tableName); });
}

// Until twice in a row there was nothing to do: a turn that a signal ends is one of them.
void Life::pump() {
  unsigned idle = 0;
  for (unsigned turn = 0; turn < turns_; ++turn) {
    bool ran = true;
    attempt([&] { ran = loop_->turn(0); });
    idle = ran ? 0 : idle + 1;
    if (idle == 2) return;
  }
  spun_ = true;
}

void Life::settle() {
  pump();
  for (unsigned round = 0; round < rounds_ && !content(); ++round) {
    care();
    pump();
  }
}

bool Life::isContent(const Follower& reader) const {
  return reader.isConnected() && reader.acknowledged && reader.at() == table_.sequence();
}

bool Life::content() const {
  if (!writer_ || !departures_ || !departures_->isWatching() || !watcher_ || watcher_->failed) {
    return false;
  }
  for (const auto& reader : readers_) {
    if (!reader || !isContent(*reader)) return false;
  }
  return writer_->sleepingReaders.size() == readers_.size() && exists(root_->path);
}

// What a client does now and then for what it has not heard of, or was told has failed.
void Life::care() {
  for (auto& reader : readers_) {
    if (!reader) {
      makeReader(reader);
    } else {
      careFor(*reader);
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

void Life::careFor(Follower& reader) {
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

// SPDX-License-Identifier: MIT
//
// A hostile writer, and a client that does all that it may: what arrives at the reader, in which
// pieces, which of its calls fail, and what the table code returns. The reader has to behave as
// a small model.
#include "stress/fuzz/connection.h"
#include "stress/fuzz/fuzzer.h"
#include "support/reader_fixture.h"

namespace Zorbe::Test::Fuzz {
namespace {

const TestRoot kRoot;
const std::string kPath = kRoot / "t";

RawPeer& listening() {
  static RawPeer socket = RawPeer::listen(kPath);
  return socket;
}
const bool kOpened = listening().isOpen();

/// What the table code does when it is asked how far it has read.
enum class Answer { kSequence, kCorruption, kSuspend, kNotDone };

struct Model {
  bool connected = false;
  bool acknowledged = false;
  bool enabled = false;
  bool suspended = false;
  bool again = false;
  bool timer = false;
  uint64_t sent = 0;
  uint32_t batches = 0;
  Connection connection;
  std::vector<std::string> failures;
  std::vector<std::string> notes;
};

class ReaderCase {
 public:
  explicit ReaderCase(Input& input) : input_(input) {
    if (input.flag()) handler_.setMaxLevel(0);
    reader_->onReaderSequence = [this] { answer(); };
  }

  ~ReaderCase() {
    reader_.reset();
    if (writer_.isOpen()) EXPECT_TRUE(writer_.isPeerClosed());
  }

  void run() {
    while (!input_.atEnd()) {
      step(input_.below(12));
      compare();
    }
  }

 private:
  void step(unsigned what) {
    switch (what) {
      case 0:
        return connect();
      case 1:
        return send(input_.text());
      case 2:
        return send("#");
      case 3:
        return hangUp();
      case 4:
        return arrive();
      case 5:
        return failWhileArriving();
      case 6:
        return setUp();
      case 7:
        return notify(input_.flag());
      case 8:
        return timeout();
      case 9:
        return report(input_.number<uint64_t>());
      case 10:
        return close(input_.flag());
      default:
        return takeReports();
    }
  }

  void connect() {
    reader_->doConnect();
    if (model_.connected) return;
    model_.connected = true;
    model_.connection = Connection();
    model_.notes.emplace_back("writerConnectionChanged up");
    writer_ = listening().accept();
    EXPECT_TRUE(writer_.isOpen());
  }

  void send(const std::string& record) {
    if (!model_.connected || !writer_.isOpen()) return;
    writer_.send(record);
    model_.connection.arrive(record);
  }

  void hangUp() {
    if (!writer_.isOpen()) return;
    model_.connection.hangUp();
    writer_.close();
  }

  // What the client and its table code are going to do.
  void setUp() {
    reader_->enabled = model_.enabled = input_.flag();
    reader_->conquerAgain = model_.again = input_.flag();
    answer_ = static_cast<Answer>(input_.below(4));
    reader_->consumed = input_.number<uint64_t>();
  }

  // Called inside a pass: the model knows by then what it expects of it.
  void answer() {
    if (answer_ == Answer::kCorruption) throw CorruptionDetectedException("torn");
    if (answer_ == Answer::kSuspend) reader_->notifying(false);
    if (answer_ == Answer::kNotDone) reader_->conquerAgain = true;
  }

  void arrive() {
    if (!model_.connected) return;
    expectArrival();
    act([this] { platform_.fd(0).fire(); });
  }

  void failWhileArriving() {
    if (!model_.connected) return;
    model_.connection.failReceive(input_, true, [this] { arrive(); });
  }

  // What handleKickFromWriter has to do.
  void expectArrival() {
    if (!model_.enabled) return;
    std::string record;
    size_t kicks = 0;
    long got;
    while ((got = model_.connection.receive(record)) > 0) kicks += static_cast<size_t>(got);
    if (got < 0 && got != -EAGAIN) {
      model_.failures.push_back("ReaderKickSm::handleKickFromWriter() recv() error: " +
                                std::string(std::strerror(static_cast<int>(-got))));
    }
    if (got != -EAGAIN) return expectEnd(false);
    if (kicks == 0) return;
    ++model_.batches;
    if (model_.acknowledged) return expectPass();
    model_.acknowledged = true;
    model_.notes.emplace_back("writerAcknowledged");
  }

  void expectPass() {
    if (!model_.enabled || !model_.acknowledged || model_.suspended) return;
    model_.notes.emplace_back("readerSequence");
    if (answer_ == Answer::kCorruption) {
      model_.failures.emplace_back(
          "ReaderKickSm::doConquer exception caught: "
          "Zorbe::CorruptionDetectedException(\"torn\")");
      return;
    }
    model_.suspended = answer_ == Answer::kSuspend;
    model_.again = model_.again || answer_ == Answer::kNotDone;
    if (model_.suspended) model_.timer = false;
    if (model_.suspended || model_.again) {
      model_.timer = true;
      return;
    }
    expectReport(reader_->consumed);
    if (!refused_) model_.timer = false;
  }

  void expectReport(uint64_t sequence) {
    if (!model_.connected) return;
    refused_ = sequence < model_.sent;
    if (refused_) return;
    model_.sent = sequence;
    const int error = model_.connection.send(bytesOf(sequence));
    if (error == 0) return;
    model_.failures.push_back(
        "ReaderKickSm::sendSequence() send() socket:" + std::to_string(platform_.fd(0).fd()) +
        " failed: " + std::strerror(error));
  }

  void expectEnd(bool detaching) {
    model_.connected = false;
    model_.acknowledged = false;
    if (!detaching) model_.notes.emplace_back("writerConnectionChanged down");
  }

  void notify(bool on) {
    if (!on) model_.timer = false;
    if (on && model_.suspended) model_.timer = true;
    model_.suspended = !on;
    reader_->notifying(on);
  }

  void timeout() {
    if (!model_.timer) return;
    model_.timer = false;
    expectPass();
    act([this] { platform_.timer(0).fire(); });
  }

  void report(uint64_t sequence) {
    expectReport(sequence);
    act([&] { reader_->sendSequence(sequence); });
  }

  void close(bool detaching) {
    if (!model_.connected) return;
    expectEnd(detaching);
    reader_->doCloseWriterConnection(detaching);
  }

  // A falling sequence is refused by an exception; nothing else is thrown.
  void act(const Hook& action) {
    bool thrown = false;
    try {
      action();
    } catch (const Brask::RuntimeException& exception) {
      thrown =
          std::string(exception.what()).find(" previously sent sequence:") != std::string::npos;
    }
    EXPECT_EQ(thrown, std::exchange(refused_, false));
  }

  void takeReports() {
    if (!writer_.isOpen()) return;
    EXPECT_EQ(allReceived(writer_), model_.connection.takeSent());
  }

  void compare() {
    EXPECT_EQ(reader_->connected, model_.connected);
    EXPECT_EQ(platform_.fd(0).watching(), model_.connected);
    EXPECT_EQ(reader_->acknowledged, model_.acknowledged);
    EXPECT_EQ(reader_->notificationsDisabled, model_.suspended);
    EXPECT_EQ(reader_->sentSequence, model_.sent);
    EXPECT_EQ(platform_.timer(0).armed(), model_.timer);
    EXPECT_EQ(counters_.conquerKicks, model_.batches);
    EXPECT_EQ(handler_.texts(0), model_.failures);
    EXPECT_EQ(takeNotes(), model_.notes);
    handler_.clear();
    model_.failures.clear();
    model_.notes.clear();
    if (!model_.connected && writer_.isOpen()) {
      EXPECT_TRUE(writer_.isPeerClosed());
      takeReports();
      writer_.close();
    }
  }

  // Calls of the client's operations; those of the controls are compared by their effect.
  std::vector<std::string> takeNotes() {
    std::vector<std::string> notes;
    for (const std::string& call : platform_.takeCalls()) {
      if (call.find('#') == std::string::npos) notes.push_back(call);
    }
    return notes;
  }

  Input& input_;
  FailureHandler handler_;
  FakePlatform platform_;
  RootPath rootPath_{handler_, "t", false};
  Reader::Counters counters_ = {};
  std::unique_ptr<TestReader> reader_ =
      std::make_unique<TestReader>(platform_, handler_, rootPath_, counters_);
  RawPeer writer_;
  Answer answer_ = Answer::kSequence;
  bool refused_ = false;
  Model model_;
};

}  // namespace
}  // namespace Zorbe::Test::Fuzz

ZORBE_FUZZER_OF(ReaderCase)

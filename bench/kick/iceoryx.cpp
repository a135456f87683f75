// SPDX-License-Identifier: MIT
//
// iceoryx: samples in shared memory, wait sets woken by semaphores, and its daemon for the
// introductions.
#include <grp.h>
#include <sys/mman.h>
#include <unistd.h>

#include <fstream>
#include <iceoryx_hoofs/log/logmanager.hpp>
#include <iceoryx_posh/popo/publisher.hpp>
#include <iceoryx_posh/popo/subscriber.hpp>
#include <iceoryx_posh/popo/wait_set.hpp>
#include <iceoryx_posh/runtime/posh_runtime.hpp>
#include <optional>

#include "harness/processes.h"
#include "kick/libraries.h"

namespace Bench {

namespace {

struct Sample {
  uint64_t sequence = 0;
};

using iox::popo::Publisher;
using iox::popo::Subscriber;
using iox::popo::WaitSet;

iox::RuntimeName_t runtimeName() {
  const std::string name = "zorbe-bench-" + std::to_string(::getpid());
  return {iox::cxx::TruncateToCapacity, name.c_str()};
}

// Files that the daemon leaves: ended by a signal that it handles it would remove them, but it
// would end its clients first.
void removeSegments() {
  const group* const own = ::getgrgid(::getegid());
  static_cast<void>(::shm_unlink("/iceoryx_mgmt"));
  if (own != nullptr) static_cast<void>(::shm_unlink((std::string("/") + own->gr_name).c_str()));
}

void start() {
  iox::log::LogManager::GetLogManager().SetDefaultLogLevel(iox::log::LogLevel::kOff,
                                                           iox::log::LogLevelOutput::kHideLogLevel);
  iox::runtime::PoshRuntime::initRuntime(runtimeName());
}

// One end: publishes one service and waits for the samples of another.
class End {
 public:
  End(const char* publishes, const char* awaits)
      : publisher_({"Bench", "Kick", {iox::cxx::TruncateToCapacity, publishes}}),
        subscriber_({"Bench", "Kick", {iox::cxx::TruncateToCapacity, awaits}}) {
    waits_.attachState(subscriber_, iox::popo::SubscriberState::HAS_DATA).or_else([](auto) {
      failed("WaitSet::attachState()");
    });
  }

  void publish(uint64_t sequence) {
    publisher_.publishCopyOf(Sample{sequence}).or_else([](auto) {
      failed("Publisher::publishCopyOf()");
    });
  }

  bool take(uint64_t& sequence) {
    bool taken = false;
    subscriber_.take().and_then([&](const auto& sample) {
      sequence = sample->sequence;
      taken = true;
    });
    return taken;
  }

  /// Milliseconds below 0 wait for ever.
  void wait(int milliseconds) {
    if (milliseconds < 0) {
      static_cast<void>(waits_.wait());
    } else {
      const auto time = static_cast<unsigned long long>(milliseconds);
      static_cast<void>(waits_.timedWait(iox::units::Duration::fromMilliseconds(time)));
    }
  }

 private:
  Publisher<Sample> publisher_;
  Subscriber<Sample> subscriber_;
  WaitSet<> waits_;
};

class Iceoryx : public MessageScheme {
 public:
  ~Iceoryx() override {
    end_.reset();
    if (daemon_ <= 0) return;
    endChild(daemon_);
    removeSegments();
  }

  std::string name() const override { return "iceoryx"; }

  void prepare() override {
    const std::string config = directory_.path() + "/roudi.toml";
    std::ofstream(config) << "[general]\nversion = 1\n[[segment]]\n[[segment.mempool]]\n"
                          << "size = 128\ncount = 1000\n";
    daemon_ = startProgram(BENCH_ICEORYX_DAEMON, "iox-roudi",
                           {"--config-file", config, "--log-level", "off"});
  }

  void read() override {
    start();
    End end("answered", "published");
    for (;;) {
      end.wait(-1);
      for (uint64_t sequence = 0; end.take(sequence);) end.publish(sequence);
    }
  }

 protected:
  void openWriter() override {
    start();
    end_.emplace("published", "answered");
  }

  void publish(uint64_t sequence) override { end_->publish(sequence); }

  bool answer(uint64_t& sequence, int milliseconds) override {
    if (end_->take(sequence)) return true;
    end_->wait(milliseconds);
    if (milliseconds >= 0) return end_->take(sequence);
    while (!end_->take(sequence)) end_->wait(-1);
    return true;
  }

 private:
  ScratchDirectory directory_;
  pid_t daemon_ = -1;
  std::optional<End> end_;
};

}  // namespace

std::unique_ptr<Scheme> makeIceoryx() {
  return std::make_unique<Iceoryx>();
}

}  // namespace Bench

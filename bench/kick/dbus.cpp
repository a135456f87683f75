// SPDX-License-Identifier: MIT
//
// D-Bus through sd-bus and a private dbus-daemon: a signal to all, a call without reply back.
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "harness/processes.h"
#include "kick/libraries.h"

namespace Bench {

namespace {

constexpr const char* service = "org.zorbe.Bench";
constexpr const char* path = "/bench";

int require(int result, const char* what) {
  if (result < 0) throw std::runtime_error(std::string(what) + ": " + std::strerror(-result));
  return result;
}

void waitFor(sd_bus* bus) {
  require(sd_bus_wait(bus, UINT64_MAX), "sd_bus_wait()");
}

class Dbus : public MessageScheme {
 public:
  ~Dbus() override {
    if (bus_ != nullptr) static_cast<void>(sd_bus_flush_close_unref(bus_));
    if (daemon_ > 0) endChild(daemon_);
  }

  std::string name() const override { return "D-Bus"; }

  void prepare() override {
    const std::string config = directory_.path() + "/bus.conf";
    std::ofstream(config) << "<busconfig><type>session</type><listen>" << address() << "</listen>"
                          << "<auth>EXTERNAL</auth><policy context=\"default\">"
                          << "<allow send_destination=\"*\" eavesdrop=\"true\"/>"
                          << "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>";
    daemon_ = startProgram(BENCH_DBUS_DAEMON, "dbus-daemon",
                           {"--config-file=" + config, "--nofork", "--nopidfile"});
    waitUntil("dbus-daemon", [this] { return std::filesystem::exists(socketPath()); });
  }

  void read() override {
    sd_bus* const bus = connect();
    answerTo_ = bus;
    require(
        sd_bus_match_signal(bus, nullptr, nullptr, path, service, "Published", onPublished, this),
        "sd_bus_match_signal()");
    for (;;) {
      if (require(sd_bus_process(bus, nullptr), "sd_bus_process()") == 0) waitFor(bus);
    }
  }

 protected:
  void openWriter() override {
    bus_ = connect();
    require(sd_bus_request_name(bus_, service, 0), "sd_bus_request_name()");
    require(sd_bus_add_object(bus_, nullptr, path, onAnswer, this), "sd_bus_add_object()");
  }

  void publish(uint64_t sequence) override {
    require(sd_bus_emit_signal(bus_, path, service, "Published", "t", sequence),
            "sd_bus_emit_signal()");
  }

  bool answer(uint64_t& sequence, int milliseconds) override {
    answered_ = false;
    while (!answered_) {
      if (require(sd_bus_process(bus_, nullptr), "sd_bus_process()") > 0) continue;
      const uint64_t wait =
          milliseconds < 0 ? UINT64_MAX : static_cast<uint64_t>(milliseconds) * 1000;
      if (require(sd_bus_wait(bus_, wait), "sd_bus_wait()") == 0) return false;
    }
    sequence = answer_;
    return true;
  }

 private:
  std::string socketPath() const { return directory_.path() + "/bus"; }
  std::string address() const { return "unix:path=" + socketPath(); }

  sd_bus* connect() const {
    sd_bus* bus = nullptr;
    require(sd_bus_new(&bus), "sd_bus_new()");
    require(sd_bus_set_address(bus, address().c_str()), "sd_bus_set_address()");
    require(sd_bus_set_bus_client(bus, 1), "sd_bus_set_bus_client()");
    // The daemon's socket exists a moment before it listens.
    waitUntil("a connection to dbus-daemon", [bus] {
      const int started = sd_bus_start(bus);
      return started != -ECONNREFUSED && require(started, "sd_bus_start()") >= 0;
    });
    return bus;
  }

  static int onPublished(sd_bus_message* message, void* self, sd_bus_error*) {
    uint64_t sequence = 0;
    require(sd_bus_message_read(message, "t", &sequence), "sd_bus_message_read()");
    sd_bus_message* report = nullptr;
    sd_bus* const bus = static_cast<Dbus*>(self)->answerTo_;
    require(sd_bus_message_new_method_call(bus, &report, service, path, service, "Answer"),
            "sd_bus_message_new_method_call()");
    require(sd_bus_message_append(report, "t", sequence), "sd_bus_message_append()");
    require(sd_bus_message_set_expect_reply(report, 0), "sd_bus_message_set_expect_reply()");
    require(sd_bus_send(bus, report, nullptr), "sd_bus_send()");
    sd_bus_message_unref(report);
    return 0;
  }

  static int onAnswer(sd_bus_message* message, void* self, sd_bus_error*) {
    Dbus* const own = static_cast<Dbus*>(self);
    require(sd_bus_message_read(message, "t", &own->answer_), "sd_bus_message_read()");
    own->answered_ = true;
    return 1;
  }

  ScratchDirectory directory_;
  pid_t daemon_ = -1;
  sd_bus* bus_ = nullptr;
  sd_bus* answerTo_ = nullptr;
  uint64_t answer_ = 0;
  bool answered_ = false;
};

}  // namespace

std::unique_ptr<Scheme> makeDbus() {
  return std::make_unique<Dbus>();
}

}  // namespace Bench

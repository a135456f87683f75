// SPDX-License-Identifier: MIT
//
// nng: a survey that every respondent answers.
#include <nng/nng.h>
#include <nng/protocol/survey0/respond.h>
#include <nng/protocol/survey0/survey.h>

#include <stdexcept>

#include "harness/processes.h"
#include "kick/libraries.h"

namespace Bench {

namespace {

void require(int error, const char* what) {
  if (error != 0) throw std::runtime_error(std::string(what) + ": " + nng_strerror(error));
}

class Nng : public MessageScheme {
 public:
  ~Nng() override {
    if (open_) static_cast<void>(nng_close(surveyor_));
  }

  std::string name() const override { return "nng"; }

  void read() override {
    nng_socket respondent;
    require(nng_respondent0_open(&respondent), "nng_respondent0_open()");
    require(nng_dial(respondent, address().c_str(), nullptr, 0), "nng_dial()");
    for (;;) {
      uint64_t sequence = 0;
      size_t size = sizeof sequence;
      require(nng_recv(respondent, &sequence, &size, 0), "nng_recv()");
      require(nng_send(respondent, &sequence, sizeof sequence, 0), "nng_send()");
    }
  }

 protected:
  void openWriter() override {
    require(nng_surveyor0_open(&surveyor_), "nng_surveyor0_open()");
    open_ = true;
    require(nng_listen(surveyor_, address().c_str(), nullptr, 0), "nng_listen()");
  }

  void publish(uint64_t sequence) override {
    require(nng_send(surveyor_, &sequence, sizeof sequence, 0), "nng_send()");
  }

  // A survey ends by itself after a second, which only the first ones, without readers, do.
  bool answer(uint64_t& sequence, int) override {
    size_t size = sizeof sequence;
    const int error = nng_recv(surveyor_, &sequence, &size, 0);
    if (error == NNG_ETIMEDOUT || error == NNG_ESTATE) return false;
    require(error, "nng_recv()");
    return true;
  }

 private:
  std::string address() const { return "ipc://" + directory_.path() + "/survey"; }

  ScratchDirectory directory_;
  nng_socket surveyor_ = NNG_SOCKET_INITIALIZER;
  bool open_ = false;
};

}  // namespace

std::unique_ptr<Scheme> makeNng() {
  return std::make_unique<Nng>();
}

}  // namespace Bench

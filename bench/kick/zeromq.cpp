// SPDX-License-Identifier: MIT
//
// ZeroMQ: PUB to SUB for publications, PUSH to PULL for answers.
#include <unistd.h>
#include <zmq.h>

#include <stdexcept>

#include "harness/processes.h"
#include "kick/libraries.h"

namespace Bench {

namespace {

void require(bool good, const char* what) {
  if (!good) throw std::runtime_error(std::string(what) + ": " + zmq_strerror(zmq_errno()));
}

class Zeromq : public MessageScheme {
 public:
  ~Zeromq() override {
    if (context_ == nullptr) return;
    for (void* socket : {publisher_, answers_}) {
      const int linger = 0;
      static_cast<void>(zmq_setsockopt(socket, ZMQ_LINGER, &linger, sizeof linger));
      static_cast<void>(zmq_close(socket));
    }
    static_cast<void>(zmq_ctx_term(context_));
  }

  std::string name() const override { return "ZeroMQ"; }

  void read() override {
    void* const context = zmq_ctx_new();
    void* const subscriber = zmq_socket(context, ZMQ_SUB);
    void* const answers = zmq_socket(context, ZMQ_PUSH);
    require(zmq_connect(subscriber, address("pub").c_str()) == 0, "zmq_connect()");
    require(zmq_setsockopt(subscriber, ZMQ_SUBSCRIBE, "", 0) == 0, "zmq_setsockopt()");
    require(zmq_connect(answers, address("pull").c_str()) == 0, "zmq_connect()");
    for (;;) {
      uint64_t sequence = 0;
      require(zmq_recv(subscriber, &sequence, sizeof sequence, 0) >= 0, "zmq_recv()");
      require(zmq_send(answers, &sequence, sizeof sequence, 0) >= 0, "zmq_send()");
    }
  }

 protected:
  void openWriter() override {
    context_ = zmq_ctx_new();
    publisher_ = zmq_socket(context_, ZMQ_PUB);
    answers_ = zmq_socket(context_, ZMQ_PULL);
    require(zmq_bind(publisher_, address("pub").c_str()) == 0, "zmq_bind()");
    require(zmq_bind(answers_, address("pull").c_str()) == 0, "zmq_bind()");
  }

  void publish(uint64_t sequence) override {
    require(zmq_send(publisher_, &sequence, sizeof sequence, 0) >= 0, "zmq_send()");
  }

  bool answer(uint64_t& sequence, int milliseconds) override {
    if (milliseconds >= 0) {
      zmq_pollitem_t item{answers_, 0, ZMQ_POLLIN, 0};
      if (zmq_poll(&item, 1, milliseconds) == 0) return false;
    }
    require(zmq_recv(answers_, &sequence, sizeof sequence, 0) >= 0, "zmq_recv()");
    return true;
  }

 private:
  std::string address(const char* what) const { return "ipc://" + directory_.path() + "/" + what; }

  ScratchDirectory directory_;
  void* context_ = nullptr;
  void* publisher_ = nullptr;
  void* answers_ = nullptr;
};

}  // namespace

std::unique_ptr<Scheme> makeZeromq() {
  return std::make_unique<Zeromq>();
}

}  // namespace Bench

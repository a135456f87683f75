// SPDX-License-Identifier: MIT
//
// The bundled loop in that of Asio: of its own, or of Boost.
#if __has_include(<asio/io_context.hpp>)
#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/steady_timer.hpp>
#else
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
namespace asio = boost::asio;
#endif

#include "program.h"

namespace {

class Driver {
 public:
  Driver(asio::io_context& context, Program& program)
      : context_(context), program_(program), timer_(context), poll_(context, program.fd()) {}
  ~Driver() { poll_.release(); }  // not closed: the bundled loop owns it
  Driver(const Driver&) = delete;
  Driver& operator=(const Driver&) = delete;

  void start() {
    waitReadable();
    waitTick();
  }

 private:
  // Both wait once, and are started again after each event.
  void waitReadable() {
    poll_.async_wait(poll_.wait_read, [this](const auto& error) {
      const bool goesOn = error ? program_.fail(error.message()) : program_.turn();
      goesOn ? waitReadable() : context_.stop();
    });
  }

  void waitTick() {
    timer_.expires_after(std::chrono::milliseconds(Program::kTickMilliseconds));
    timer_.async_wait(
        [this](const auto& /*error*/) { program_.tick() ? waitTick() : context_.stop(); });
  }

  asio::io_context& context_;
  Program& program_;
  asio::steady_timer timer_;
  asio::posix::stream_descriptor poll_;
};

}  // namespace

int main(int count, char** words) try {
  Program program(count, words);
  asio::io_context context(1);
  Driver driver(context, program);
  driver.start();
  context.run();
  program.end();
} catch (const std::exception& failure) {
  std::cerr << "loops-asio: " << failure.what() << '\n';
  return 1;
}

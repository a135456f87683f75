// SPDX-License-Identifier: MIT
//
// The library on the bundled loop.
#include <brask/linux/event_loop.h>
#include <stdlib.h>
#include <zorbe/root_path.h>

#include "harness/processes.h"
#include "harness/roles.h"
#include "kick/scheme.h"

namespace Bench {

namespace {

class Library : public Scheme {
 public:
  std::string name() const override { return "libZorbe"; }

  void prepare() override {
    published_ = shared<Published>();
    check(::setenv("SHMEM_ROOT", directory_.path().c_str(), 1), "setenv()");
    root_ = std::make_unique<Zorbe::RootPath>(handler_, "bench", true);
  }

  void read() override {
    Brask::Linux::EventLoop loop;
    Reader reader(handler_, *root_, *published_);
    reader.doConnect();
    while (reader.isConnected()) loop.turn(-1);
  }

  void open(int readers) override {
    readers_ = static_cast<size_t>(readers);
    loop_ = std::make_unique<Brask::Linux::EventLoop>();
    writer_ = std::make_unique<Writer>(handler_, *root_, *published_);
    writer_->open();
  }

  void settle() override {
    collect();
    round();
  }

  void round() override {
    writer_->publish();
    collect();
  }

 private:
  void collect() {
    while (writer_->sleeping() < readers_) loop_->turn(-1);
  }

  SilentHandler handler_;
  ScratchDirectory directory_;
  std::unique_ptr<Zorbe::RootPath> root_;
  Published* published_ = nullptr;
  size_t readers_ = 0;
  std::unique_ptr<Brask::Linux::EventLoop> loop_;
  std::unique_ptr<Writer> writer_;
};

}  // namespace

std::unique_ptr<Scheme> makeZorbe() {
  return std::make_unique<Library>();
}

}  // namespace Bench

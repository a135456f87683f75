// SPDX-License-Identifier: MIT
//
// Uses every header of the installed package: a writer takes its lock and a second one is
// refused. Exits with 0 when all of it was so.
#include <brask/exception.h>
#include <brask/linux/event_loop.h>
#include <brask/linux/stream_debug_handler.h>
#include <brask/platform.h>
#include <mem/mkpath.h>
#include <nsutil/nsutil.h>
#include <zorbe/counters.h>
#include <zorbe/debuggable.h>
#include <zorbe/exceptions.h>
#include <zorbe/export.h>
#include <zorbe/fenix_file.h>
#include <zorbe/kick.h>
#include <zorbe/mounter.h>
#include <zorbe/root_path.h>
#include <zorbe/unlock.h>
#include <zorbe/util.h>

#include <cstring>
#include <iostream>

namespace {

class Writer : public Zorbe::WriterKickSm {
 public:
  using WriterKickSm::WriterKickSm;
  int expectReconnects() override { return 0; }
  void readersChanged() override {}
};

bool secondWriterIsRefused(Writer& second) {
  try {
    second.createKickSocket();
  } catch (const Zorbe::DuplicateWriterException& refused) {
    return std::strcmp(refused.name(), "Zorbe::DuplicateWriterException") == 0;
  }
  return false;
}

}  // namespace

int main() {
  Brask::Linux::EventLoop loop;
  Brask::Linux::StreamDebugHandler log(std::cerr, -1);
  const Zorbe::RootPath root(log, "installed", true);
  Zorbe::FenixFile::write(log, root.path, 7);
  Writer first(log, root, false);
  first.createKickSocket();
  first.doEnableListen();
  Writer second(log, root, false);
  const bool good = secondWriterIsRefused(second) && Zorbe::FenixFile::read(log, root.path) == 7 &&
                    Zorbe::MounterSm::MOUNTER_DEFAULT_MASK == 0x208;
  std::cout << (good ? "works" : "does not work") << "\n";
  return good ? 0 : 1;
}

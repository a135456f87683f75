// SPDX-License-Identifier: MIT
#include "support/table_socket.h"

#include "fault/fault.h"
#include "support/recording_handler.h"

#include <unistd.h>
#include <zorbe/util.h>

#include <cerrno>
#include <cstddef>

namespace Zorbe::Test {
namespace {

int opened() {
  return socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
}

int given(int fd, bool done) {
  if (done) return fd;
  const int error = errno;
  close(fd);
  errno = error;
  return -1;
}

}  // namespace

TableSocket::TableSocket(const std::string& rootPath) {
  RecordingHandler quiet;
  quiet.setMaxLevel(RecordingHandler::nothing);
  length = Util::createSockaddr(quiet, &address, rootPath);
}

std::string TableSocket::abstractName() const {
  constexpr size_t lead = offsetof(sockaddr_un, sun_path) + 1;
  return {address.sun_path + 1, length - lead};
}

int TableSocket::bind(int backlog) const {
  const Fault::Bypass bypass;
  const int fd = opened();
  return given(fd, ::bind(fd, get(), length) == 0 && (backlog < 0 || listen(fd, backlog) == 0));
}

int TableSocket::connect() const {
  const Fault::Bypass bypass;
  const int fd = opened();
  return given(fd, ::connect(fd, get(), length) == 0);
}

}  // namespace Zorbe::Test

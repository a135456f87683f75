// SPDX-License-Identifier: MIT
//
// Any bytes as the path of a table: the address has to be the one that docs/protocol.md
// describes, byte by byte, or be refused without touching what was handed in; and the kernel
// has to give a socket that is bound to it exactly this name.
#include "sockets/sockaddr.h"
#include "stress/fuzz/fuzzer.h"
#include "support/fake_platform.h"
#include "support/recording_handler.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <zorbe/exceptions.h>
#include <zorbe/util.h>

#include <array>
#include <cerrno>

namespace Zorbe::Test::Fuzz {
namespace {

using Bytes = std::array<unsigned char, sizeof(sockaddr_un)>;

std::string lastComponent(const std::string& path) {
  std::string last;
  for (const char c : path) c == '/' ? last.clear() : last.push_back(c);
  return last;
}

std::string eightDigits(uint32_t number) {
  std::string digits;
  for (int shift = 28; shift >= 0; shift -= 4) digits += "0123456789abcdef"[number >> shift & 15];
  return digits;
}

uint32_t naiveHash(const std::string& text) {
  uint64_t h = 2166136261;
  for (const char c : text) {
    const int number = static_cast<unsigned char>(c) < 128 ? c & 127 : (c & 127) - 128;
    h = ((h ^ static_cast<uint32_t>(number)) * 16777619) % 0x100000000;
  }
  return static_cast<uint32_t>(h);
}

std::string naiveName(const std::string& path) {
  return "zorbe_" + lastComponent(path) + "_" + eightDigits(naiveHash(path));
}

void expectRefusal(RecordingHandler& handler, const std::string& path) {
  const std::string text =
      "Util::createSockaddr() zorbeName too large " + lastComponent(path) + " for 108 sockaddr_un";
  const auto untouched = std::make_unique<Bytes>();
  untouched->fill(0xab);
  try {
    Util::createSockaddr(handler, untouched.get(), path);
    ADD_FAILURE() << "a name that is too long was taken";
  } catch (const Brask::RuntimeException& exception) {
    EXPECT_EQ(exception.what(), std::string(text.c_str()));
  }
  for (const unsigned char byte : *untouched) EXPECT_EQ(byte, 0xab);
  EXPECT_EQ(handler.texts(0), std::vector<std::string>{text});
}

// Another process may hold the name at this moment.
void expectKernelAgrees(const Bytes& address, socklen_t length) {
  const int fd = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  EXPECT_GE(fd, 0);
  if (::bind(fd, reinterpret_cast<const sockaddr*>(address.data()), length) != 0) {
    EXPECT_EQ(errno, EADDRINUSE);
  } else {
    Bytes bound = {};
    socklen_t size = sizeof bound;
    EXPECT_EQ(::getsockname(fd, reinterpret_cast<sockaddr*>(bound.data()), &size), 0);
    EXPECT_EQ(size, length);
    EXPECT_EQ(bound, address);
  }
  EXPECT_EQ(::close(fd), 0);
}

void expectAddress(RecordingHandler& handler, const std::string& path, const std::string& name) {
  const auto filled = std::make_unique<Bytes>();  // the sanitizer guards its end
  filled->fill(0xab);
  const unsigned length = Util::createSockaddr(handler, filled.get(), path);
  Bytes expected = {AF_UNIX & 0xff, AF_UNIX >> 8, 0};
  std::copy(name.begin(), name.end(), expected.begin() + 3);
  EXPECT_EQ(*filled, expected);
  EXPECT_EQ(length, 3 + name.size());
  EXPECT_EQ(handler.texts(2), std::vector<std::string>{"Util::createSockaddr() " + path +
                                                       " using abstract socket " + name});
  EXPECT_EQ(TableAddress(handler, path).abstractName(), name);
  expectKernelAgrees(*filled, length);
}

}  // namespace
}  // namespace Zorbe::Test::Fuzz

ZORBE_FUZZER(input) {
  using namespace Zorbe::Test::Fuzz;
  FailureHandler handler;
  const std::string path = input.rest();
  const std::string name = naiveName(path);
  EXPECT_EQ(Zorbe::Util::hash(path), naiveHash(path));
  name.size() > 106 ? expectRefusal(handler, path) : expectAddress(handler, path, name);
}

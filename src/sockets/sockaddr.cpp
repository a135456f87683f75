// SPDX-License-Identifier: MIT
#include "sockets/sockaddr.h"

#include <zorbe/exceptions.h>
#include <zorbe/util.h>

#include <cstddef>
#include <iomanip>

#include "foundation/log.h"

namespace Zorbe {

namespace {

constexpr std::size_t kPathOffset = offsetof(sockaddr_un, sun_path);
constexpr std::size_t kLongestName = sizeof(sockaddr_un) - kPathOffset - 2;  // 106

std::string baseName(const std::string& name) {
  return name.substr(name.rfind('/') + 1);
}

std::string abstractName(const std::string& name) {
  return ZORBE_TEXT("zorbe_" << baseName(name) << '_' << std::hex << std::setw(8)
                             << std::setfill('0') << Util::hash(name));
}

}  // namespace

unsigned int Util::createSockaddr(Brask::Platform::DebugHandler& handler, void* addr,
                                  const std::string& name) {
  const std::string abstract = abstractName(name);
  if (abstract.size() > kLongestName) {
    Log::fail<Brask::RuntimeException>(
        handler, ZORBE_TEXT("Util::createSockaddr() zorbeName too large "
                            << baseName(name) << " for " << sizeof(sockaddr_un::sun_path)
                            << " sockaddr_un"));
  }
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  abstract.copy(address.sun_path + 1, kLongestName);  // behind the zero byte: see unix(7)
  std::memcpy(addr, &address, sizeof address);
  ZORBE_LOG(handler, kMilestone,
            "Util::createSockaddr() " << name << " using abstract socket " << abstract);
  return static_cast<unsigned int>(kPathOffset + 1 + abstract.size());
}

TableAddress::TableAddress(Brask::Platform::DebugHandler& handler, const std::string& name)
    : address_(), length_(Util::createSockaddr(handler, &address_, name)) {}

std::string TableAddress::abstractName() const {
  return {address_.sun_path + 1, length_ - kPathOffset - 1};
}

}  // namespace Zorbe

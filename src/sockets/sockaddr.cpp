// SPDX-License-Identifier: MIT
#include "sockets/sockaddr.h"

#include <zorbe/exceptions.h>
#include <zorbe/util.h>

#include <cstddef>
#include <cstring>

#include "foundation/log.h"
#include "sockets/abstract_name.h"

namespace Zorbe {

namespace {

// Throws when no address holds the name.
std::string checkedName(Brask::Platform::DebugHandler& handler, const std::string& path) {
  std::string abstract = abstractName(path);
  if (abstract.size() > kLongestAbstractName) {
    Log::fail<Brask::RuntimeException>(
        handler, ZORBE_TEXT("Util::createSockaddr() zorbeName too large "
                            << baseName(path) << " for " << sizeof(sockaddr_un::sun_path)
                            << " sockaddr_un"));
  }
  return abstract;
}

sockaddr_un addressOf(const std::string& abstract) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  abstract.copy(address.sun_path + 1, kLongestAbstractName);  // after the zero byte: see unix(7)
  return address;
}

socklen_t lengthOf(const std::string& abstract) {
  return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + abstract.size());
}

void logName(Brask::Platform::DebugHandler& handler, const std::string& path,
             const std::string& abstract) {
  ZORBE_LOG(handler, kMilestone,
            "Util::createSockaddr() " << path << " using abstract socket " << abstract);
}

}  // namespace

TableAddress::TableAddress(Brask::Platform::DebugHandler& handler, const std::string& name)
    : abstractName_(checkedName(handler, name)), address_(addressOf(abstractName_)) {
  logName(handler, name, abstractName_);
}

socklen_t TableAddress::length() const {
  return lengthOf(abstractName_);
}

// The address is complete before the message: the handler may throw.
unsigned int Util::createSockaddr(Brask::Platform::DebugHandler& handler, void* addr,
                                  const std::string& name) {
  const std::string abstract = checkedName(handler, name);
  const sockaddr_un address = addressOf(abstract);
  std::memcpy(addr, &address, sizeof address);
  logName(handler, name, abstract);
  return lengthOf(abstract);
}

}  // namespace Zorbe

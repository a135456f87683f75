// SPDX-License-Identifier: MIT
#include "sockets/sockaddr.h"

#include <zorbe/exceptions.h>
#include <zorbe/util.h>

#include <cstddef>
#include <cstring>

#include "foundation/log.h"
#include "sockets/abstract_name.h"

namespace Zorbe {

TableAddress::TableAddress(Brask::Platform::DebugHandler& handler, const std::string& name)
    : address_(), abstractName_(Zorbe::abstractName(name)) {
  if (abstractName_.size() > kLongestAbstractName) {
    Log::fail<Brask::RuntimeException>(
        handler, ZORBE_TEXT("Util::createSockaddr() zorbeName too large "
                            << baseName(name) << " for " << sizeof(sockaddr_un::sun_path)
                            << " sockaddr_un"));
  }
  address_.sun_family = AF_UNIX;
  // After the zero byte: see unix(7).
  abstractName_.copy(address_.sun_path + 1, kLongestAbstractName);
  ZORBE_LOG(handler, kMilestone,
            "Util::createSockaddr() " << name << " using abstract socket " << abstractName_);
}

socklen_t TableAddress::length() const {
  return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + abstractName_.size());
}

unsigned int Util::createSockaddr(Brask::Platform::DebugHandler& handler, void* addr,
                                  const std::string& name) {
  const TableAddress address(handler, name);
  std::memcpy(addr, address.get(), sizeof(sockaddr_un));
  return address.length();
}

}  // namespace Zorbe

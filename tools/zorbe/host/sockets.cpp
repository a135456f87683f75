// SPDX-License-Identifier: MIT
#include "host/sockets.h"

#include <nsutil/nsutil.h>
#include <sched.h>
#include <sys/socket.h>
#include <zorbe/util.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <system_error>

#include "sockets/abstract_name.h"

namespace Zorbe::Tool {

namespace {

constexpr unsigned long kAcceptsConnections = 0x10000;  // __SO_ACCEPTCON of the kernel
constexpr unsigned long kSequencedPackets = SOCK_SEQPACKET;

// The values of the "St" column: see SS_UNCONNECTED and following of <linux/net.h>.
enum State : unsigned long { kUnconnected = 1, kConnecting = 2, kConnected = 3 };

struct Line {
  unsigned long flags;
  unsigned long type;
  unsigned long state;
  ino_t inode;
  std::string name;  // without the '@' that represents the leading zero byte
};

// Names may contain line breaks, which /proc/net/unix prints as they are: a line begins only
// where its columns match.
std::optional<Line> parseLine(const std::string& text) {
  Line line{};
  unsigned long long inode = 0;  // of 64 bits wherever files may be large
  int end = 0;
  const int fields = std::sscanf(text.c_str(), "%*[0-9a-fA-F]: %*8x %*8x %8lx %4lx %2lx %llu%n",
                                 &line.flags, &line.type, &line.state, &inode, &end);
  if (fields != 4) return std::nullopt;
  line.inode = inode;
  const std::string rest = text.substr(static_cast<std::size_t>(end));
  if (rest.rfind(" @", 0) == 0) line.name = rest.substr(2);
  return line;
}

void count(SocketsByName& sockets, const Line& line) {
  if (line.type != kSequencedPackets || line.name.empty()) return;
  TableSockets& table = sockets[line.name];
  if (line.state == kConnected) ++table.connections;
  if (line.state == kConnecting) ++table.pending;
  if (line.state != kUnconnected) return;
  table.bound.push_back(line.inode);
  if ((line.flags & kAcceptsConnections) != 0) table.listening = true;
}

}  // namespace

SocketsByName parseSockets(const std::string& content) {
  SocketsByName sockets;
  std::optional<Line> current;
  const auto finish = [&] {
    if (current) count(sockets, *current);
  };
  for (std::size_t begin = content.find('\n') + 1; begin != 0 && begin < content.size();) {
    const std::size_t end = std::min(content.find('\n', begin), content.size());
    const std::string text = content.substr(begin, end - begin);
    if (auto line = parseLine(text)) {
      finish();
      current = std::move(line);
    } else if (current) {
      current->name += '\n' + text;
    }
    begin = end + 1;
  }
  finish();
  return sockets;
}

SocketsByName readSockets() {
  const char* const path = "/proc/net/unix";
  std::ifstream file(path);
  if (!file.is_open()) throw std::system_error(errno, std::generic_category(), path);
  const std::string content{std::istreambuf_iterator<char>(file), {}};
  return parseSockets(content);
}

std::optional<std::string> socketName(const std::string& rootPath) {
  std::string name = abstractName(rootPath);
  if (name.size() > kLongestAbstractName) return std::nullopt;
  return name;
}

SocketAddress addressOfPath(Brask::Platform::DebugHandler& handler, const std::string& rootPath) {
  SocketAddress address;
  address.length = Util::createSockaddr(handler, &address.bytes, rootPath);
  return address;
}

SocketAddress addressOfName(const std::string& abstractName) {
  SocketAddress address = {};
  address.bytes.sun_family = AF_UNIX;
  abstractName.copy(address.bytes.sun_path + 1, kLongestAbstractName);  // see unix(7)
  address.length = static_cast<unsigned>(offsetof(sockaddr_un, sun_path) + 1 + abstractName.size());
  return address;
}

std::optional<std::string> lastComponent(const std::string& socket) {
  constexpr std::size_t kPrefix = 6;
  constexpr std::size_t kSuffix = 9;
  if (socket.size() < kPrefix + kSuffix || socket.rfind("zorbe_", 0) != 0) return std::nullopt;
  return socket.substr(kPrefix, socket.size() - kPrefix - kSuffix);
}

std::string enterNamespaceOfTables() {
  if (setnsByName(DEFAULT_NS, CLONE_NEWNET) == 0) return {};
  const char* const why = netnsGetTracebuffer();
  return why != nullptr && *why != '\0' ? why : "no reason given";
}

}  // namespace Zorbe::Tool

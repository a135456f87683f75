// SPDX-License-Identifier: MIT
#include "host/connections.h"

#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <system_error>

#include "foundation/unique_fd.h"

namespace Zorbe::Tool {

namespace {

// What one message of the kernel says about one socket.
struct Socket {
  bool sequenced = false;
  ino_t inode = 0;
  std::string name;  // without the leading zero byte; empty when it is no abstract one
  std::optional<ino_t> peer;
  std::optional<uid_t> uid;
  std::vector<uint32_t> waiting;  // sockets that wait to be accepted
};

[[noreturn]] void fail(const char* call, int error) {
  throw std::system_error(error, std::generic_category(), call);
}

UniqueFd openDiagnostics() {
  const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
  if (fd < 0) fail("socket(NETLINK_SOCK_DIAG)", errno);
  UniqueFd diagnostics(fd);
  const timeval second{1, 0};  // the kernel answers at once, or not at all
  if (setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &second, sizeof second) != 0) {
    fail("setsockopt(SO_RCVTIMEO)", errno);
  }
  return diagnostics;
}

void request(int fd) {
  struct {
    nlmsghdr header;
    unix_diag_req body;
  } message{};
  message.header.nlmsg_len = sizeof message;
  message.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  message.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  message.body.sdiag_family = AF_UNIX;
  message.body.udiag_states = ~0U;
  message.body.udiag_show = UDIAG_SHOW_NAME | UDIAG_SHOW_PEER | UDIAG_SHOW_ICONS | UDIAG_SHOW_UID;
  if (send(fd, &message, sizeof message, 0) != static_cast<ssize_t>(sizeof message)) {
    fail("send(SOCK_DIAG_BY_FAMILY)", errno);
  }
}

// A number of four bytes; none when the attribute has another length.
std::optional<uint32_t> number(const char* data, size_t bytes) {
  uint32_t value = 0;
  if (bytes != sizeof value) return std::nullopt;
  std::memcpy(&value, data, sizeof value);
  return value;
}

void addAttribute(Socket& socket, unsigned type, const char* data, size_t bytes) {
  switch (type) {
    case UNIX_DIAG_NAME:
      if (bytes > 1 && data[0] == '\0') socket.name.assign(data + 1, bytes - 1);
      break;
    case UNIX_DIAG_PEER:
      socket.peer = number(data, bytes);
      break;
    case UNIX_DIAG_UID:
      socket.uid = number(data, bytes);
      break;
    case UNIX_DIAG_ICONS:
      if (bytes < sizeof(uint32_t)) break;  // nobody waits
      socket.waiting.resize(bytes / sizeof(uint32_t));
      std::memcpy(socket.waiting.data(), data, socket.waiting.size() * sizeof(uint32_t));
      break;
    default:
      break;
  }
}

// The attributes follow the message's body, each at a multiple of four bytes.
Socket parse(const char* body, size_t bytes) {
  Socket socket;
  unix_diag_msg message{};
  if (bytes < sizeof message) return socket;
  std::memcpy(&message, body, sizeof message);
  socket.sequenced = message.udiag_type == SOCK_SEQPACKET;
  socket.inode = message.udiag_ino;
  for (size_t at = NLMSG_ALIGN(sizeof message); at + sizeof(nlattr) <= bytes;) {
    nlattr attribute{};
    std::memcpy(&attribute, body + at, sizeof attribute);
    if (attribute.nla_len < sizeof attribute || attribute.nla_len > bytes - at) break;
    addAttribute(socket, attribute.nla_type & NLA_TYPE_MASK, body + at + sizeof attribute,
                 attribute.nla_len - sizeof attribute);
    at += NLA_ALIGN(attribute.nla_len);
  }
  return socket;
}

// The messages of one packet. False after the last one of all.
bool readPacket(const std::vector<char>& packet, size_t length, std::vector<Socket>& sockets) {
  for (size_t at = 0; at + sizeof(nlmsghdr) <= length;) {
    nlmsghdr header{};
    std::memcpy(&header, packet.data() + at, sizeof header);
    if (header.nlmsg_len < sizeof header || header.nlmsg_len > length - at) fail("recv()", EPROTO);
    const char* const body = packet.data() + at + sizeof header;
    const size_t bytes = header.nlmsg_len - sizeof header;
    if (header.nlmsg_type == NLMSG_DONE) return false;
    if (header.nlmsg_type == NLMSG_ERROR) {
      const std::optional<uint32_t> error = number(body, std::min<size_t>(bytes, 4));
      fail("socket diagnostics", error ? -static_cast<int>(*error) : EPROTO);
    }
    if (header.nlmsg_type == SOCK_DIAG_BY_FAMILY) sockets.push_back(parse(body, bytes));
    at += NLMSG_ALIGN(header.nlmsg_len);
  }
  return true;
}

std::vector<Socket> readSocketsOfAll() {
  const UniqueFd diagnostics = openDiagnostics();
  request(diagnostics.get());
  std::vector<Socket> sockets;
  constexpr std::size_t kPacketBytes = 65536;
  std::vector<char> packet(kPacketBytes);
  for (bool more = true; more;) {
    const ssize_t length = recv(diagnostics.get(), packet.data(), packet.size(), 0);
    if (length < 0 && errno == EINTR) continue;
    if (length <= 0) fail("recv(NETLINK_SOCK_DIAG)", length == 0 ? EPROTO : errno);
    more = readPacket(packet, static_cast<size_t>(length), sockets);
  }
  return sockets;
}

}  // namespace

Connections readConnections() {
  const std::vector<Socket> sockets = readSocketsOfAll();
  std::map<ino_t, std::optional<uid_t>> users;
  for (const Socket& socket : sockets) users[socket.inode] = socket.uid;
  const auto userOf = [&](ino_t inode) {
    const auto found = users.find(inode);
    return found == users.end() ? std::nullopt : found->second;
  };
  Connections connections;
  for (const Socket& socket : sockets) {
    if (!socket.sequenced || socket.name.empty()) continue;
    std::vector<Connection>& ends = connections[socket.name];
    if (socket.peer) ends.push_back({*socket.peer, userOf(*socket.peer), false});
    for (const uint32_t waiting : socket.waiting) ends.push_back({waiting, userOf(waiting), true});
  }
  return connections;
}

}  // namespace Zorbe::Tool

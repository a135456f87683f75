// SPDX-License-Identifier: MIT
#pragma once

#include "fault/fault.h"
#include "stress/fuzz/input.h"
#include "support/kernel/sockets.h"
#include "support/raw_peer.h"

#include <array>
#include <cerrno>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Zorbe::Test::Fuzz {

/// The model of a connection: the end that the library reads and writes, and that of its peer.
class Connection {
 public:
  Connection() {
    using State = Kernel::Socket::State;
    own_->state = peer_->state = State::kConnected;
    own_->peer = peer_;
    peer_->peer = own_;
  }

  // What the peer does.
  void arrive(const std::string& record) { EXPECT_EQ(sockets_->send(*peer_, record), 0); }
  void hangUp() { sockets_->close(peer_); }

  /// All records that the peer has not taken yet.
  std::vector<std::string> takeSent() {
    const auto sent = std::exchange(peer_->packets, {});
    return {sent.begin(), sent.end()};
  }

  /// During `act` a call of `receive` fails, as the input decides, and likewise one of the
  /// library's recv(2) when it is to call it.
  template <class Act>
  void failReceive(Input& input, bool inLibrary, Act act) {
    constexpr std::array<int, 5> kErrors = {EAGAIN, EINTR, ECONNRESET, ENOMEM, ENOTCONN};
    callsToFailure_ = 1 + input.below(3);
    error_ = kErrors[input.below(kErrors.size())];
    if (inLibrary) Fault::arm("recv", callsToFailure_, error_);
    act();
    callsToFailure_ = 0;
    Fault::reset();
  }

  /// The library's next recv(2): what it returns, or an errno as a negative number.
  long receive(std::string& record) {
    if (callsToFailure_ != 0 && --callsToFailure_ == 0) return -error_;
    const int error = sockets_->receive(*own_, kUnlimited, record);
    return error != 0 ? -error : static_cast<long>(record.size());
  }

  /// The library's send(2): 0 or an errno.
  int send(const std::string& record) { return sockets_->send(*own_, record); }

 private:
  static constexpr size_t kUnlimited = std::numeric_limits<size_t>::max();

  std::shared_ptr<std::set<std::string>> covered_ = std::make_shared<std::set<std::string>>();
  std::shared_ptr<Kernel::Sockets> sockets_ =
      std::make_shared<Kernel::Sockets>(kUnlimited, *covered_);
  Kernel::SocketRef own_ = std::make_shared<Kernel::Socket>();
  Kernel::SocketRef peer_ = std::make_shared<Kernel::Socket>();
  unsigned callsToFailure_ = 0;
  int error_ = 0;
};

/// All records that have arrived, also when the other end was closed without reading what was
/// sent to it, which is reported first.
inline std::vector<std::string> allReceived(const RawPeer& peer) {
  std::vector<std::string> records = peer.received();
  return records.empty() ? peer.received() : records;
}

}  // namespace Zorbe::Test::Fuzz

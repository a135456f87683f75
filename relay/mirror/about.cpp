// SPDX-License-Identifier: MIT
#include "mirror/about.h"

namespace Zorbe::Relay {

Command askAbout(const Keys& keys) {
  Command command("HMGET");
  return command.add(keys.about)
      .add("format")
      .add("schema")
      .add("epoch")
      .add("last")
      .add("compared")
      .add("heartbeat")
      .add("source")
      .add("host")
      .add("pid")
      .add("version");
}

About parseAbout(const Reply& reply) {
  const auto field = [&](size_t index) { return std::string(reply[index].text()); };
  return {field(0), field(1), field(2), field(3), field(4),
          field(5), field(6), field(7), field(8), field(9)};
}

}  // namespace Zorbe::Relay

// SPDX-License-Identifier: MIT
#include "memory/identity.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>
#include <zorbe/util.h>

#include <cerrno>
#include <string>
#include <string_view>

#include "foundation/unique_fd.h"

namespace Zorbe::Table {

namespace {

constexpr const char* kBootIdFile = "/proc/sys/kernel/random/boot_id";

// The 32 hexadecimal digits of "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx" as two numbers.
bool parseBootId(const std::string& text, Identity& identity) {
  unsigned digits = 0;
  for (const char character : text) {
    if (character == '-' || character == '\n') continue;
    constexpr std::string_view kHex = "0123456789abcdef";
    const size_t value = kHex.find(character);
    if (value == std::string_view::npos || digits == 32) return false;
    uint64_t& half = digits++ < 16 ? identity.bootHigh : identity.bootLow;
    half = half << 4 | value;
  }
  return digits == 32;
}

[[noreturn]] void failFormat(const Place& place, const std::string& path, uint64_t order,
                             uint64_t version) {
  std::string text = path + " was written by a host of the other byte order";
  if (order == kByteOrder) {
    text = path + " has version " + std::to_string(version) + " instead of " +
           std::to_string(kVersion);
  }
  throw Error(ErrorCode::version, place.table, "",
              text + "; remove it, or use another root directory");
}

}  // namespace

Identity currentBoot(const Place& place) {
  const UniqueFd fd(::open(kBootIdFile, O_RDONLY | O_CLOEXEC));
  char text[64];
  const ssize_t length = fd.get() < 0 ? -1 : ::read(fd.get(), text, sizeof text);
  const int error = errno;
  if (length < 0) failCall(place, "read()", kBootIdFile, error);
  Identity identity;
  if (!parseBootId(std::string(text, static_cast<size_t>(length)), identity)) {
    failCall(place, "read()", kBootIdFile, EINVAL);
  }
  return identity;
}

uint64_t randomNumber(const Place& place) {
  uint64_t number = 0;
  while (number == 0) {
    const ssize_t length = ::getrandom(&number, sizeof number, 0);
    const int error = errno;
    if (length < 0 && error != EINTR) failCall(place, "getrandom()", place.directory, error);
    if (length != sizeof number) number = 0;
  }
  return number;
}

Identity identityIn(const Prologue& prologue) {
  return {acquire(prologue.incarnation), acquire(prologue.bootLow), acquire(prologue.bootHigh)};
}

void fillPrologue(Prologue& prologue, const Identity& identity, uint64_t generation,
                  uint64_t size) {
  release(prologue.byteOrder, kByteOrder);
  release(prologue.version, kVersion);
  release(prologue.incarnation, identity.incarnation);
  release(prologue.bootLow, identity.bootLow);
  release(prologue.bootHigh, identity.bootHigh);
  release(prologue.generation, generation);
  release(prologue.size, size);
}

bool isComplete(const Place& place, const std::string& path, const Prologue& prologue,
                const char (&magic)[9]) {
  const uint64_t found = acquire(prologue.magic);
  if (found == 0) return false;
  if (found != magicOf(magic)) {
    failCorrupt(
        place, path + " begins with '" + Util::decodeMagic(found) + "' instead of '" + magic + "'");
  }
  const uint64_t order = acquire(prologue.byteOrder);
  const uint64_t version = acquire(prologue.version);
  if (order == kByteOrder && version == kVersion) return true;
  if (order != kByteOrder && __builtin_bswap64(order) != kByteOrder) {
    failCorrupt(place, path + " has no byte order");
  }
  failFormat(place, path, order, version);
}

}  // namespace Zorbe::Table

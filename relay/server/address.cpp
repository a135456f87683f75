// SPDX-License-Identifier: MIT
#include "server/address.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>

namespace Zorbe::Relay {

namespace {

constexpr uint16_t kServerPort = 6379;
constexpr uint16_t kSentinelPort = 26379;

[[noreturn]] void refuse(const std::string& text, const std::string& why) {
  throw UsageError("cannot use the address '" + text + "': " + why);
}

template <class Number>
Number number(const std::string& text, std::string_view digits, const char* what) {
  Number value{};
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, value);
  if (error != std::errc() || stop != end)
    refuse(text, std::string("the ") + what + " is no number in range");
  return value;
}

// What follows `prefix`, when the text begins with it.
std::optional<std::string_view> after(std::string_view text, std::string_view prefix) {
  if (text.substr(0, prefix.size()) != prefix) return std::nullopt;
  return text.substr(prefix.size());
}

// Cuts off and returns what is before the separator, or all of it.
std::string_view cut(std::string_view& rest, char separator) {
  const size_t at = rest.find(separator);
  const std::string_view part = rest.substr(0, at);
  rest = at == std::string_view::npos ? std::string_view() : rest.substr(at + 1);
  return part;
}

Endpoint endpoint(const std::string& text, std::string_view part, uint16_t port) {
  Endpoint result;
  result.port = port;
  std::string_view host = part;
  std::string_view digits;
  if (const auto inBrackets = after(part, "[")) {
    digits = *inBrackets;
    host = cut(digits, ']');
    if (!digits.empty() && digits.front() != ':') refuse(text, "a port follows ']:'");
    if (!digits.empty()) digits.remove_prefix(1);
  } else {
    digits = part;
    host = cut(digits, ':');
  }
  if (host.empty()) refuse(text, "it names no host");
  result.host = host;
  if (!digits.empty()) result.port = number<uint16_t>(text, digits, "port");
  if (result.port == 0) refuse(text, "the port is no number in range");
  return result;
}

unsigned database(const std::string& text, std::string_view digits) {
  return digits.empty() ? 0 : number<unsigned>(text, digits, "database");
}

Address server(const std::string& text, std::string_view rest) {
  Address result;
  const std::string_view place = cut(rest, '/');
  result.endpoints.push_back(endpoint(text, place, kServerPort));
  result.database = database(text, rest);
  return result;
}

Address localSocket(const std::string& text, std::string_view rest) {
  Address result;
  const std::string_view path = cut(rest, '?');
  if (path.empty() || path.front() != '/') refuse(text, "the path is not absolute");
  Endpoint place;
  place.path = path;
  result.endpoints.push_back(place);
  if (rest.empty()) return result;
  const auto digits = after(rest, "db=");
  if (!digits) refuse(text, "only db=NUMBER may follow '?'");
  result.database = database(text, *digits);
  return result;
}

Address sentinels(const std::string& text, std::string_view rest) {
  Address result;
  std::string_view places = cut(rest, '/');
  while (!places.empty()) {
    result.endpoints.push_back(endpoint(text, cut(places, ','), kSentinelPort));
  }
  if (result.endpoints.empty()) refuse(text, "it names no host");
  result.master = cut(rest, '/');
  if (result.master.empty()) refuse(text, "the name of the master follows the sentinels: .../NAME");
  result.database = database(text, rest);
  return result;
}

Address encrypted(const std::string& text, Address address, const TlsFiles& files) {
  if (!Encryption::isBuilt()) {
    refuse(text,
           "this build has no TLS; let stunnel(8) carry the connection, and name the port "
           "on which it accepts");
  }
  address.tls = files;
  return address;
}

}  // namespace

std::string print(const Endpoint& endpoint) {
  if (!endpoint.path.empty()) return endpoint.path;
  const bool isNumeric6 = endpoint.host.find(':') != std::string::npos;
  const std::string host = isNumeric6 ? "[" + endpoint.host + "]" : endpoint.host;
  return host + ":" + std::to_string(endpoint.port);
}

Address parseAddress(const std::string& text, const TlsFiles& files) {
  if (text.find('@') != std::string::npos) {
    throw UsageError(
        "a password in an address is seen by every user of this host: put it into a "
        "file and name that with --password-file");
  }
  std::string_view rest = text;
  const std::string_view scheme = rest.substr(0, rest.find("://"));
  rest.remove_prefix(std::min(scheme.size() + 3, rest.size()));
  if (scheme == "rediss") return encrypted(text, server(text, rest), files);
  if (scheme == "rediss+sentinel") return encrypted(text, sentinels(text, rest), files);
  if (!files.authorities.empty() || !files.certificate.empty()) {
    refuse(text, "certificates are for TLS, which rediss:// and rediss+sentinel:// ask for");
  }
  if (scheme == "redis") return server(text, rest);
  if (scheme == "unix") return localSocket(text, rest);
  if (scheme == "redis+sentinel") return sentinels(text, rest);
  refuse(text, "it begins with none of redis://, unix:// and redis+sentinel://");
}

}  // namespace Zorbe::Relay

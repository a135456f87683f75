// SPDX-License-Identifier: MIT
#include <zorbe/table/error.h>

namespace Zorbe::Table {

namespace {

std::string compose(const std::string& table, const std::string& key, const std::string& text) {
  if (table.empty()) return text;
  std::string subject = "table '" + table + "'";
  if (!key.empty()) subject += ", key " + key;
  return subject + ": " + text;
}

}  // namespace

Error::Error(ErrorCode code, const std::string& table, const std::string& key,
             const std::string& text)
    : Exception(compose(table, key, text), true),
      code_(code),
      table_(table),
      key_(key),
      detail_(text) {}

Error::~Error() = default;

const char* Error::name() const {
  return "Zorbe::Table::Error";
}

}  // namespace Zorbe::Table

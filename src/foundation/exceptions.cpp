// SPDX-License-Identifier: MIT
#include <zorbe/exceptions.h>

namespace Zorbe {

ConnectionException::ConnectionException(const std::string& text) : Exception(text, true) {}
ConnectionException::~ConnectionException() = default;
const char* ConnectionException::name() const {
  return "Zorbe::ConnectionException";
}

CorruptionDetectedException::CorruptionDetectedException(const std::string& text)
    : Exception(text, true) {}
CorruptionDetectedException::~CorruptionDetectedException() = default;
const char* CorruptionDetectedException::name() const {
  return "Zorbe::CorruptionDetectedException";
}

DuplicateWriterException::DuplicateWriterException(const std::string& text, uint32_t ownerPid,
                                                   const std::string& ownerPath,
                                                   const std::string& lastOwnerNote)
    : Exception(text, true), pid(ownerPid), owner(ownerPath), lastOwner(lastOwnerNote) {}
DuplicateWriterException::~DuplicateWriterException() = default;
const char* DuplicateWriterException::name() const {
  return "Zorbe::DuplicateWriterException";
}

}  // namespace Zorbe

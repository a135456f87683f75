// SPDX-License-Identifier: MIT
#pragma once

#include "support/noncopyable.h"

#include <cwchar>
#include <locale>

namespace Zorbe::Test {

/// While one lives, the global locale converts what is written to files (7 becomes 6), and
/// fails to convert what is read.
class ConvertingLocale : private NonCopyable {
 public:
  ConvertingLocale() : before_(std::locale::global({std::locale::classic(), new Facet})) {}
  ~ConvertingLocale() { std::locale::global(before_); }

 private:
  class Facet : public std::codecvt<char, char, std::mbstate_t> {
    bool do_always_noconv() const noexcept override { return false; }
    result do_out(state_type& /*state*/, const char* from, const char* fromEnd,
                  const char*& fromNext, char* to, char* toEnd, char*& toNext) const override {
      for (; from != fromEnd && to != toEnd; ++from, ++to) *to = *from == '7' ? '6' : *from;
      fromNext = from;
      toNext = to;
      return from == fromEnd ? ok : partial;
    }
    result do_in(state_type& /*state*/, const char* from, const char* /*fromEnd*/,
                 const char*& fromNext, char* to, char* /*toEnd*/, char*& toNext) const override {
      fromNext = from;
      toNext = to;
      return error;
    }
  };

  std::locale before_;
};

}  // namespace Zorbe::Test

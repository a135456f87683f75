// SPDX-License-Identifier: MIT
#pragma once

namespace Zorbe::Test {

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZORBE_TEST_SANITIZED
#endif
#endif
#if defined(ZORBE_TEST_SANITIZED) || defined(__SANITIZE_ADDRESS__)
inline constexpr bool kIsSanitized = true;
#else
inline constexpr bool kIsSanitized = false;
#endif

}  // namespace Zorbe::Test

// SPDX-License-Identifier: MIT
#include "kick/libraries.h"

namespace Bench {

Schemes makeLibraries() {
  Schemes schemes;
#ifdef BENCH_WITH_ZEROMQ
  schemes.push_back(makeZeromq());
#endif
#ifdef BENCH_WITH_NNG
  schemes.push_back(makeNng());
#endif
#ifdef BENCH_WITH_DBUS
  schemes.push_back(makeDbus());
#endif
#ifdef BENCH_WITH_REDIS
  schemes.push_back(makeRedis());
#endif
#ifdef BENCH_WITH_ICEORYX
  schemes.push_back(makeIceoryx());
#endif
  return schemes;
}

}  // namespace Bench

// SPDX-License-Identifier: MIT
//
// FdControl.
#include "conformance/fixture.h"

#include <sys/un.h>

namespace Zorbe::Conformance {
namespace {

class DescriptorConformance : public LoopConformance {
 protected:
  // What refers to `source` takes the place of the descriptor of `pair`, under the same number.
  static void replace(Pair& pair, int source) {
    const int number = pair.here;
    pair.closeHere();
    ASSERT_EQ(number, ::dup3(source, number, O_CLOEXEC));
    pair.here = number;
  }

  Pair pair_, another_;
  FdProbe probe_;
};

// Two that are ready in the same turn. The handler that is called first calls `whenFirst` with the
// probe and the descriptors of the other.
class TwoReadyDescriptors {
 public:
  using Action = std::function<void(FdProbe&, Pair&)>;

  explicit TwoReadyDescriptors(const Action& whenFirst) {
    for (int each : {0, 1}) {
      probes_[each].onEvent = [this, whenFirst, each](int) {
        probes_[each].control->unwatch();
        if (++events == 1) whenFirst(probes_[1 - each], pairs_[1 - each]);
      };
      probes_[each].control->watch(pairs_[each].here);
      pairs_[each].makeReady();
    }
  }

  int events = 0;

 private:
  Pair pairs_[2];
  FdProbe probes_[2];
};

// A listening socket, and one that is connected to it.
struct Connection {
  Connection() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socklen_t length = sizeof address.sun_family;  // the kernel chooses a name
    auto* const named = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(0, ::bind(listening, named, length));
    EXPECT_EQ(0, ::listen(listening, 1));
    length = sizeof address;
    EXPECT_EQ(0, ::getsockname(listening, named, &length));
    EXPECT_EQ(0, ::connect(connected, named, length));
  }
  ~Connection() {
    ::close(listening);
    ::close(connected);
  }

  int listening = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  int connected = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
};

bool isOpen(int fd) {
  return ::fcntl(fd, F_GETFD) >= 0;
}

}  // namespace

TEST_F(DescriptorConformance, ReportsDataForAsLongAsThereIsSome) {
  probe_.control->watch(pair_.here);
  settle();
  EXPECT_EQ(0, probe_.events);
  pair_.makeReady();
  settle();
  EXPECT_GE(probe_.events, 2);
  pair_.drain();
  const int before = probe_.events;
  settle();
  EXPECT_EQ(before, probe_.events);
}

TEST_F(DescriptorConformance, ReportsDataFromBeforeItWasWatched) {
  pair_.makeReady();
  probe_.control->watch(pair_.here);
  settle();
  EXPECT_GE(probe_.events, 1);
}

TEST_F(DescriptorConformance, ReportsTheEndOfAConnection) {
  probe_.control->watch(pair_.here);
  pair_.closeThere();
  settle();
  EXPECT_GE(probe_.events, 1);
}

TEST_F(DescriptorConformance, ReportsAnError) {
  int ends[2];
  ASSERT_EQ(0, ::pipe2(ends, O_CLOEXEC));
  probe_.control->watch(ends[1]);
  ::close(ends[0]);
  settle();
  EXPECT_GE(probe_.events, 1);
  ::close(ends[1]);
  probe_.control->unwatch();
}

TEST_F(DescriptorConformance, ReportsAConnectionToAListeningSocket) {
  const Connection connection;
  probe_.control->watch(connection.listening);
  settle();
  EXPECT_GE(probe_.events, 1);
}

TEST_F(DescriptorConformance, DoesNotReportThatADescriptorCanBeWritten) {
  probe_.control->watch(pair_.here);
  settle();
  EXPECT_EQ(0, probe_.events);
}

TEST_F(DescriptorConformance, PassesTheDescriptorThatIsReady) {
  probe_.control->watch(pair_.here);
  pair_.makeReady();
  settle();
  EXPECT_EQ(pair_.here, probe_.last);
}

TEST_F(DescriptorConformance, MakesTheDescriptorNonBlocking) {
  ASSERT_EQ(0, ::fcntl(pair_.here, F_SETFL, 0));
  probe_.control->watch(pair_.here);
  EXPECT_NE(0, ::fcntl(pair_.here, F_GETFL) & O_NONBLOCK);
}

TEST_F(DescriptorConformance, WatchCallsNoHandler) {
  pair_.makeReady();
  probe_.control->watch(pair_.here);
  EXPECT_EQ(0, probe_.events);
}

TEST_F(DescriptorConformance, ReturnsTheWatchedDescriptorOrMinusOne) {
  EXPECT_EQ(-1, probe_.control->fd());
  probe_.control->watch(pair_.here);
  EXPECT_EQ(pair_.here, probe_.control->fd());
  probe_.control->watch(another_.here);
  EXPECT_EQ(another_.here, probe_.control->fd());
  probe_.control->unwatch();
  EXPECT_EQ(-1, probe_.control->fd());
}

TEST_F(DescriptorConformance, RefusesWhatCannotBeWatchedWithAnException) {
  probe_.control->watch(pair_.here);
  const int closed = another_.here;
  another_.closeHere();
  EXPECT_ANY_THROW(probe_.control->watch(closed));
  EXPECT_EQ(-1, probe_.control->fd());
}

TEST_F(DescriptorConformance, WatchingAnotherReplacesTheFirst) {
  probe_.control->watch(pair_.here);
  probe_.control->watch(another_.here);
  pair_.makeReady();
  settle();
  EXPECT_EQ(0, probe_.events);
  another_.makeReady();
  settle();
  EXPECT_EQ(another_.here, probe_.last);
}

TEST_F(DescriptorConformance, UnwatchEndsTheEvents) {
  probe_.control->watch(pair_.here);
  pair_.makeReady();
  probe_.control->unwatch();
  settle();
  EXPECT_EQ(0, probe_.events);
}

TEST_F(DescriptorConformance, UnwatchIsHarmlessTwiceAndAfterClose) {
  EXPECT_NO_THROW(probe_.control->unwatch());
  probe_.control->watch(pair_.here);
  pair_.closeHere();
  EXPECT_NO_THROW(probe_.control->unwatch());
  EXPECT_NO_THROW(probe_.control->unwatch());
  EXPECT_EQ(-1, probe_.control->fd());
}

TEST_F(DescriptorConformance, ClosesNoDescriptor) {
  {
    FdProbe deleted;
    deleted.control->watch(pair_.here);
    deleted.control->watch(another_.here);
    EXPECT_TRUE(isOpen(pair_.here));
    deleted.control->unwatch();
    EXPECT_TRUE(isOpen(another_.here));
    deleted.control->watch(pair_.here);
  }
  EXPECT_TRUE(isOpen(pair_.here));
}

// A client that connects again gets the number of the connection that it has closed.
TEST_F(DescriptorConformance, WatchesANumberThatWasWatchedBefore) {
  Pair third;
  FdProbe other;
  for (FdProbe* const probe : {&probe_, &other}) {
    const int number = pair_.here;
    probe_.control->watch(number);
    ASSERT_NO_FATAL_FAILURE(replace(pair_, third.here));
    probe_.control->unwatch();
    probe->control->watch(number);
    third.makeReady();
    settle();
    EXPECT_GE(probe->events, 1);
    third.drain();
    probe->control->unwatch();
  }
}

TEST_F(DescriptorConformance, ANumberThatIsUsedAgainInATurnInheritsNoEvent) {
  TwoReadyDescriptors two([this](FdProbe& other, Pair& pair) {
    replace(pair, another_.here);
    other.control->unwatch();
    probe_.control->watch(pair.here);
  });
  settle();
  EXPECT_EQ(1, two.events);
  EXPECT_EQ(0, probe_.events);
  probe_.control->unwatch();
}

TEST_F(DescriptorConformance, UnwatchHoldsForTheTurnInWhichADescriptorIsReady) {
  TwoReadyDescriptors two([](FdProbe& other, Pair&) { other.control->unwatch(); });
  settle();
  EXPECT_EQ(1, two.events);
}

TEST_F(DescriptorConformance, AHandlerMayWatchAnotherDescriptor) {
  probe_.onEvent = [this](int fd) {
    if (fd == pair_.here) probe_.control->watch(another_.here);
  };
  probe_.control->watch(pair_.here);
  pair_.makeReady();
  another_.makeReady();
  settle();
  EXPECT_EQ(another_.here, probe_.last);
  EXPECT_EQ(another_.here, probe_.control->fd());
}

}  // namespace Zorbe::Conformance

// SPDX-License-Identifier: MIT
#include "sockets/sockaddr.h"

#include "support/noncopyable.h"
#include "unit/src/sockets/sockets_fixture.h"

#include <zorbe/exceptions.h>
#include <zorbe/util.h>

#include <algorithm>
#include <array>
#include <locale>

namespace Zorbe::Test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::StartsWith;

class SockaddrTest : public SocketsTest {
 protected:
  using Bytes = std::array<char, sizeof(sockaddr_un)>;

  unsigned int create(const std::string& name) {
    return Util::createSockaddr(handler, bytes.data(), name);
  }

  /// The bytes after the family and the leading zero, up to `length`.
  std::string name(unsigned int length) const { return {bytes.data() + 3, length - 3}; }

  std::string nameOf(const std::string& path) {
    const unsigned int length = create(path);
    return name(length);
  }

  Bytes bytes = filled();

 private:
  static Bytes filled() {
    Bytes all;
    all.fill('\x7f');
    return all;
  }
};

/// Writes 1234567 as 1.23.45.67, in hexadecimal, too.
class GroupingDigits : public std::numpunct<char> {
 protected:
  std::string do_grouping() const override { return "\2"; }
  char do_thousands_sep() const override { return '.'; }
};

class GlobalLocale : private NonCopyable {
 public:
  explicit GlobalLocale(const std::locale& replacement)
      : before_(std::locale::global(replacement)) {}
  ~GlobalLocale() { std::locale::global(before_); }

 private:
  std::locale before_;
};

TEST_F(SockaddrTest, FillsTheWholeAddress) {
  static_assert(sizeof(sockaddr_un) == 110);
  const std::string name = "zorbe_quotes_2444bf32";
  EXPECT_EQ(create("/var/shmem/zorbes/quotes"), 3 + name.size());
  const sa_family_t family = AF_UNIX;
  EXPECT_EQ(std::memcmp(bytes.data(), &family, sizeof family), 0);
  EXPECT_EQ(bytes[2], '\0');
  EXPECT_EQ(std::string(bytes.data() + 3, name.size()), name);
  const std::string rest(bytes.begin() + 3 + static_cast<long>(name.size()), bytes.end());
  EXPECT_THAT(rest, Each('\0'));
}

TEST_F(SockaddrTest, ReportsWhichNameItUses) {
  create("/var/shmem/zorbes/quotes");
  EXPECT_THAT(handler.take(), ElementsAre(Logged(2,
                                                 "Util::createSockaddr() /var/shmem/zorbes/quotes "
                                                 "using abstract socket zorbe_quotes_2444bf32")));
}

TEST_F(SockaddrTest, LogsNothingWhenLoggingIsOff) {
  handler.setMaxLevel(1);
  create("quotes");
  EXPECT_EQ(handler.queries(2), 1u);
  EXPECT_EQ(handler.queries(), 1u);
}

TEST_F(SockaddrTest, TakesTheWholeNameWhereThereIsNoSlash) {
  EXPECT_EQ(nameOf("quotes"), "zorbe_quotes_b0daa32c");
}

TEST_F(SockaddrTest, ANameThatEndsInASlashHasNoBaseName) {
  EXPECT_EQ(nameOf("/a/quotes/"), "zorbe__e4ab13bc");
  EXPECT_EQ(nameOf("/"), "zorbe__2a0c975e");
}

TEST_F(SockaddrTest, AnEmptyNameIsHashedToo) {
  EXPECT_EQ(nameOf(""), "zorbe__811c9dc5");
}

TEST_F(SockaddrTest, TheHashAlwaysHasEightDigits) {
  EXPECT_EQ(nameOf("/r/t10"), "zorbe_t10_02c7656e");
  EXPECT_EQ(nameOf("/r/t12"), "zorbe_t12_00c76248");
}

TEST_F(SockaddrTest, TheSameLastComponentElsewhereIsAnotherName) {
  const std::string here = nameOf("/here/quotes");
  EXPECT_THAT(here, StartsWith("zorbe_quotes_"));
  EXPECT_THAT(nameOf("/there/quotes"), StartsWith("zorbe_quotes_"));
  EXPECT_NE(nameOf("/there/quotes"), here);
}

TEST_F(SockaddrTest, ABaseNameOf91BytesFits) {
  const std::string base(91, 'b');
  EXPECT_EQ(create("/r/" + base), 109u);
  EXPECT_THAT(name(109), StartsWith("zorbe_" + base + "_"));
  EXPECT_EQ(bytes[109], '\0');
}

TEST_F(SockaddrTest, ABaseNameOf92BytesIsRefused) {
  const std::string base(92, 'b');
  const std::string text =
      "Util::createSockaddr() zorbeName too large " + base + " for 108 sockaddr_un";
  handler.expectFailures();
  EXPECT_EQ(thrownBy<Brask::RuntimeException>([&] { create("/r/" + base); }), text);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(0, text)));
  EXPECT_THAT(bytes, Each('\x7f'));
}

TEST_F(SockaddrTest, TheAddressIsCompleteBeforeItIsLogged) {
  handler.throwAt(1);
  EXPECT_THROW(create("/there/quotes"), std::logic_error);
  EXPECT_THAT(name(22), StartsWith("zorbe_quotes_"));
}

TEST_F(SockaddrTest, TheDirectoriesDoNotCountForTheLength) {
  EXPECT_EQ(create("/" + std::string(4000, 'd') + "/t"), 3 + 6 + 1 + 1 + 8u);
}

TEST_F(SockaddrTest, TwoPartiesThatFormTheAddressMeet) {
  const RawPeer writer = RawPeer::listen(inRoot("quotes"));
  const RawPeer reader = RawPeer::connect(inRoot("quotes"));
  ASSERT_TRUE(writer.isOpen());
  EXPECT_TRUE(reader.isOpen());
  sockaddr_un bound;
  socklen_t length = sizeof bound;
  EXPECT_EQ(getsockname(writer.fd(), reinterpret_cast<sockaddr*>(&bound), &length), 0);
  EXPECT_EQ(length, TableSocket(inRoot("quotes")).length);
}

TEST_F(SockaddrTest, TheNameDoesNotDependOnTheLocaleOfTheProcess) {
  const GlobalLocale grouping(std::locale(std::locale::classic(), new GroupingDigits));
  EXPECT_EQ(nameOf("/var/shmem/zorbes/quotes"), "zorbe_quotes_2444bf32");
}

TEST_F(SockaddrTest, MessagesDoNotDependOnTheLocaleOfTheProcess) {
  handler.expectFailures();
  const GlobalLocale grouping(std::locale(std::locale::classic(), new GroupingDigits));
  EXPECT_THAT(thrownBy<Brask::RuntimeException>([&] { create(std::string(92, 'b')); }),
              testing::EndsWith(" for 108 sockaddr_un"));
  EXPECT_THAT(handler.messages().back().text, testing::EndsWith(" for 108 sockaddr_un"));
}

TEST_F(SockaddrTest, ATableAddressIsWhatCreateSockaddrMakes) {
  const unsigned int length = create("/r/quotes");
  const TableAddress address(handler, "/r/quotes");
  EXPECT_EQ(address.length(), length);
  EXPECT_EQ(std::memcmp(address.get(), bytes.data(), bytes.size()), 0);
  EXPECT_EQ(address.abstractName(), name(length));
}

}  // namespace
}  // namespace Zorbe::Test

// SPDX-License-Identifier: MIT
#include "support/descriptor_zero.h"

#include "support/reader_fixture.h"

namespace Zorbe::Test {
namespace {

class WriterAtDescriptorZeroTest : public WriterTest {
 protected:
  DescriptorZero zero;
};

TEST_F(WriterAtDescriptorZeroTest, TheLockIsHeldAndClosed) {
  zero.freeBefore("socket");
  listen();
  EXPECT_EQ(writer->kickSocket, 0);
  RawPeer reader = connectReader();
  EXPECT_EQ(writer->readers.size(), 1u);
  writer->deleteKickSocket();
  EXPECT_FALSE(DescriptorZero::isOpen());
}

TEST_F(WriterAtDescriptorZeroTest, AReaderIsAcceptedKickedAndClosed) {
  listen();
  zero.freeBefore("accept");
  RawPeer reader = connectReader();
  EXPECT_EQ(writer->readers.count(0), 1u);
  report(reader, 0);
  EXPECT_EQ(reader.received(), std::vector<std::string>{"#"});
  writer.reset();
  EXPECT_FALSE(DescriptorZero::isOpen());
}

class ReaderAtDescriptorZeroTest : public ReaderTest {
 protected:
  void connectAtZero() {
    reader->enabled = true;
    startWriter();
    zero.freeBefore("socket");
    connect();
    EXPECT_EQ(control().fd(), 0);
  }

  DescriptorZero zero;
};

TEST_F(ReaderAtDescriptorZeroTest, TheConnectionIsUsedAndClosed) {
  connectAtZero();
  kick();
  EXPECT_TRUE(reader->acknowledged);
  reader.reset();
  EXPECT_FALSE(DescriptorZero::isOpen());
}

TEST_F(ReaderAtDescriptorZeroTest, TheEndOfTheConnectionClosesIt) {
  connectAtZero();
  writerEnd.close();
  control().fire();
  EXPECT_FALSE(reader->connected);
  EXPECT_FALSE(DescriptorZero::isOpen());
}

}  // namespace
}  // namespace Zorbe::Test

// SPDX-License-Identifier: MIT
//
// Writers and readers in processes of their own that lack descriptors or lose their files.
#include "unit/table/table_program.h"

#include "support/child_process.h"
#include "support/limits.h"
#include "support/raw_peer.h"
#include "support/sanitized.h"

#include <csignal>

namespace Zorbe::Test {
namespace {

using TableProcess = TableProgram;

TEST_F(TableProcess, AReaderReadsWhileAWriterHasNoDescriptorForIt) {
  ChildProcess writer("writer", [&](Channel& parent) {
    Writer table("t", options);
    table.put(1, {10, 0});
    table.publish();
    NoDescriptors none;
    parent.send("ready");
    parent.await("publish");
    table.put(2, {20, 0});
    table.publish();
    parent.send("published");
    parent.await("recover");
    none.allow();
    parent.await("end");
  });
  writer.await("ready");
  Reader reader("t", options);
  EXPECT_TRUE(sees(reader, 1, 10));
  writer.send("publish");
  writer.await("published");
  EXPECT_EQ(reader.get(2)->a, 20);
  EXPECT_TRUE(sees(reader, 2, 20));
  writer.send("recover");
  EXPECT_TRUE(waitUntil(reader, [&] {
    return reader.state() == State::connected && reader.status()->connections == 1;
  }));
  writer.send("end");
  EXPECT_EQ(writer.finish(), 0);
}

// As the documents say: nobody else can do it to a table of mode 0644.
TEST_F(TableProcess, AFileThatItsOwnerTruncatesUnderAMappingIsSigbus) {
  if (kIsSanitized) GTEST_SKIP() << "the sanitizer reports it in its own way";
  ChildProcess reader("reader", [&](Channel& parent) {
    {
      Writer writer("t", options);
      writer.put(1, {10, 0});
    }
    const Reader mapped("t", options);
    EXPECT_EQ(mapped.get(1)->a, 10);
    parent.send("ready");
    parent.await("read");
    static_cast<void>(mapped.get(1));
    parent.send("survived");
  });
  reader.await("ready");
  ASSERT_EQ(::truncate(inRoot("t/slots").c_str(), 0), 0);
  reader.send("read");
  EXPECT_EQ(reader.finish(), -SIGBUS);
}

}  // namespace
}  // namespace Zorbe::Test

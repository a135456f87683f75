// SPDX-License-Identifier: MIT
#include "unit/tools/records_fixture.h"

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;

class ZorbeFeedJson : public Records {
 protected:
  Outcome feedJson(const std::string& lines) {
    return zorbeWith(lines, feedOf("t", {"--format", "json"}));
  }
};

TEST_F(ZorbeFeedJson, StoresAndErases) {
  feed("t", "a,1\nb,2\nc,3\n");
  const Outcome run = feedJson(R"({"k":"b","erased":true}
{"v":4,"k":"d"}
{"k":"c","v":5,"erased":false}
{"k":"none","erased":true}
)");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(rowsOf("t"), ElementsAre("a,1", "c,5", "d,4"));
}

TEST_F(ZorbeFeedJson, ReportsBadLines) {
  const Outcome run = feedJson("{\"k\":\"a\",\"v\":1}\n\n{\"k\":\"b\"}\n[]\n{\"k\":\"c\",\"v\":1}");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err,
            "zorbe: line 2: an object is needed at byte 1\n"
            "zorbe: line 3: the field 'v' is missing\n"
            "zorbe: line 4: an object is needed at byte 1\n");
  EXPECT_THAT(rowsOf("t"), ElementsAre("a,1", "c,1"));
}

TEST_F(ZorbeFeedJson, ATransferErasesWhatItDoesNotName) {
  feed("t", "a,1\nb,2\nc,3\n");
  const Outcome run = feedJson(R"({"k":"c","v":3}
{"reset":true}
{"k":"a","v":9}
{"k":"d","v":4}
{"complete":true}
)");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(rowsOf("t"), ElementsAre("a,9", "d,4"));
}

TEST_F(ZorbeFeedJson, ATransferThatIsNotCompleteErasesNothing) {
  feed("t", "a,1\nb,2\n");
  EXPECT_EQ(feedJson("{\"reset\":true}\n{\"k\":\"a\",\"v\":9}\n").status, 0);
  EXPECT_THAT(rowsOf("t"), ElementsAre("a,9", "b,2"));
  EXPECT_EQ(feedJson("{\"k\":\"a\",\"v\":8}\n{\"complete\":true}\n").status, 0);
  EXPECT_THAT(rowsOf("t"), ElementsAre("a,8", "b,2"));
}

TEST_F(ZorbeFeedJson, ATransferThatBeginsAgainNamesEverythingAgain) {
  feed("t", "a,1\nb,2\n");
  EXPECT_EQ(feedJson(R"({"reset":true}
{"k":"a","v":1}
{"reset":true}
{"k":"b","v":2}
{"complete":true}
)")
                .status,
            0);
  EXPECT_THAT(rowsOf("t"), ElementsAre("b,2"));
}

}  // namespace
}  // namespace Zorbe::Test

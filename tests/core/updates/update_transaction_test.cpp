#include "core/updates/update_transaction.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/support/decoding_error.h"

namespace zev {
namespace {

const Uuid kId = *Uuid::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
const Timestamp kCreated = timestampFromMillisecondsSince1970(1763683200000);

UpdateTransaction sample() {
  return UpdateTransaction(
      "1.4.2", "1.5.0",
      {timestampFromMillisecondsSince1970(1763683199500), 1, {{"cam1/main", true, 1763683190000}}},
      "/home/u/.zevd/reliability/archives/E621E1F8", kCreated, kId);
}

constexpr const char* kSampleJSON =
    R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","sourceVersion":"1.4.2",)"
    R"("targetVersion":"1.5.0","baseline":{"capturedAt":1763683199500,"configuredStreamCount":1,)"
    R"("streams":[{"id":"cam1/main","recording":true,"lastSegmentMS":1763683190000}]},)"
    R"("archivePath":"/home/u/.zevd/reliability/archives/E621E1F8","createdAt":1763683200000,)"
    R"("updatedAt":1763683200000,"state":"preparing"})";

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const auto at = text.find(from);
  EXPECT_NE(at, std::string::npos) << "fixture has no " << from;
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return text;
}

// The stored form is compact, in field order, with the state's stored string
// and the reason only when there is one.
TEST(UpdateTransactionJSON, EncodesEveryStateInFieldOrderAndRoundTrips) {
  EXPECT_EQ(encodeUpdateTransaction(sample()), kSampleJSON);
  using S = UpdateState;
  const std::pair<UpdateState, std::string> cases[] = {{S::installing, "installing"},
                                                       {S::verifying, "verifying"},
                                                       {S::certified, "certified"},
                                                       {S::failed, "failed"},
                                                       {S::rolledBack, "rolled_back"}};
  for (const auto& [state, stored] : cases) {
    SCOPED_TRACE(stored);
    UpdateTransaction t = sample();
    t.setState(state);
    t.setFailureReason("why");
    const std::string json = encodeUpdateTransaction(t);
    EXPECT_EQ(json, replaced(kSampleJSON, R"("state":"preparing")",
                             R"("state":")" + stored + R"(","failureReason":"why")"));
    EXPECT_EQ(decodeUpdateTransaction(json), t);
  }
}

// Forms other writers may produce, and look-alikes that are refused. Mistyped,
// missing or out-of-range fields are left to the fuzzer's seeds.
TEST(UpdateTransactionJSON, DecodesOtherWritersFormsAndRejectsForeignOnes) {
  struct Case {
    const char* name;
    std::string from, to;
    bool accepted;
  };
  const Case cases[] = {
      {"null reason", R"(ing"})", R"(ing","failureReason":null})", true},
      {"unknown keys", R"("sourceVersion")", R"("extra":{"n":[1]},"sourceVersion")", true},
      {"lower-case id", "E621E1F8-C36C", "e621e1f8-c36c", true},
      {"fractional time rounds", R"("createdAt":1763683200000)", R"("createdAt":1763683199999.6)",
       true},
      {"case name as state", R"("state":"preparing")", R"("state":"rolledBack")", false},
      {"count as fraction", R"("configuredStreamCount":1)", R"("configuredStreamCount":1.5)",
       false},
      {"id without hyphens", "E621E1F8-C36C-495A-93FC-", "E621E1F8C36C495A93FC", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string text = replaced(kSampleJSON, c.from, c.to);
    if (c.accepted) {
      EXPECT_EQ(decodeUpdateTransaction(text), sample());
    } else {
      EXPECT_THROW(decodeUpdateTransaction(text), DecodingError);
    }
  }
}

}  // namespace
}  // namespace zev

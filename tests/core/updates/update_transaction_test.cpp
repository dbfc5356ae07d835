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

TEST(UpdateTransaction, ResumedAfterLaunchOnlyMovesInstallingToVerifying) {
  const Timestamp later = kCreated + std::chrono::minutes(3);
  for (UpdateState state : {UpdateState::preparing, UpdateState::installing, UpdateState::verifying,
                            UpdateState::certified, UpdateState::failed, UpdateState::rolledBack}) {
    SCOPED_TRACE(rawValue(state));
    UpdateTransaction original = sample();
    original.setState(state);
    original.setFailureReason("why");
    const UpdateTransaction before = original;
    const UpdateTransaction resumed = original.resumedAfterLaunch(later);
    EXPECT_EQ(original, before) << "the receiver must stay untouched";
    if (state == UpdateState::installing) {
      EXPECT_EQ(resumed.state(), UpdateState::verifying);
      EXPECT_EQ(resumed.updatedAt(), later);
      EXPECT_EQ(resumed.createdAt(), kCreated);
      EXPECT_EQ(resumed.failureReason(), "why");
    } else {
      EXPECT_EQ(resumed, original);  // updatedAt included: no deadline is extended
    }
  }
}

TEST(UpdateTransactionJSON, EncodesCompactlyInFieldOrderAndOmitsAbsentReason) {
  EXPECT_EQ(encodeUpdateTransaction(sample()), kSampleJSON);

  UpdateTransaction failed = sample();
  failed.setState(UpdateState::failed);
  failed.setFailureReason("update blocked: configured streams had no healthy baseline");
  EXPECT_EQ(encodeUpdateTransaction(failed),
            replaced(kSampleJSON, R"("state":"preparing"})",
                     R"("state":"failed","failureReason":"update blocked: configured streams )"
                     R"(had no healthy baseline"})"));
}

TEST(UpdateTransactionJSON, StateStringsRoundTripAndRolledBackIsSnakeCase) {
  using S = UpdateState;
  const std::pair<UpdateState, std::string> cases[] = {
      {S::preparing, "preparing"}, {S::installing, "installing"}, {S::verifying, "verifying"},
      {S::certified, "certified"}, {S::failed, "failed"},         {S::rolledBack, "rolled_back"}};
  for (const auto& [state, stored] : cases) {
    SCOPED_TRACE(stored);
    UpdateTransaction t = sample();
    t.setState(state);
    const std::string json = encodeUpdateTransaction(t);
    EXPECT_NE(json.find(R"("state":")" + stored + "\""), std::string::npos);
    EXPECT_EQ(decodeUpdateTransaction(json), t);
  }
}

TEST(UpdateTransactionJSON, ReadsWhatOtherWritersMayProduce) {
  struct Case {
    const char* name;
    std::string from, to;
  };
  const std::vector<Case> cases = {
      {"null reason", R"("state":"preparing"})", R"("state":"preparing","failureReason":null})"},
      {"unknown keys", R"("sourceVersion")", R"("extra":{"nested":[1,2]},"sourceVersion")"},
      {"lower-case id", "E621E1F8-C36C-495A-93FC-0C247A3E6E5F",
       "e621e1f8-c36c-495a-93fc-0c247a3e6e5f"},
      {"fractional time rounds to the millisecond", R"("createdAt":1763683200000)",
       R"("createdAt":1763683199999.6)"},
      {"exponent time", R"("updatedAt":1763683200000)", R"("updatedAt":1.7636832e12)"},
      {"pretty printed", R"({"id")", "{\n  \"id\""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(decodeUpdateTransaction(replaced(kSampleJSON, c.from, c.to)), sample());
  }
}

TEST(UpdateTransactionJSON, RejectsCorruptOrForeignRecords) {
  struct Case {
    const char* name;
    std::string from, to;
  };
  const std::vector<Case> cases = {
      {"case name instead of stored string", R"("state":"preparing")", R"("state":"rolledBack")"},
      {"unknown state", R"("state":"preparing")", R"("state":"Preparing")"},
      {"missing targetVersion", R"("targetVersion":"1.5.0",)", ""},
      {"missing baseline", R"("baseline":{"capturedAt")", R"("other":{"capturedAt")"},
      {"null archivePath", R"("archivePath":"/home/u/.zevd/reliability/archives/E621E1F8")",
       R"("archivePath":null)"},
      {"reason not a string", R"("state":"preparing")", R"("state":"preparing","failureReason":1)"},
      {"time as string", R"("createdAt":1763683200000)", R"("createdAt":"1763683200000")"},
      {"time beyond 64 bits", R"("createdAt":1763683200000)", R"("createdAt":1e300)"},
      {"id without hyphens", "E621E1F8-C36C-495A-93FC-0C247A3E6E5F",
       "E621E1F8C36C495A93FC0C247A3E6E5F"},
      {"id with braces", R"("E621E1F8-C36C-495A-93FC-0C247A3E6E5F")",
       R"("{E621E1F8-C36C-495A-93FC-0C247A3E6E5F}")"},
      {"baseline count as fraction", R"("configuredStreamCount":1)",
       R"("configuredStreamCount":1.5)"},
      {"stream not an object", R"([{"id":"cam1/main")", R"(["cam1/main",{"id":"x")"},
      {"trailing garbage", R"("state":"preparing"})", R"("state":"preparing"}x)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_THROW(decodeUpdateTransaction(replaced(kSampleJSON, c.from, c.to)), DecodingError);
  }
  for (const std::string& text : {std::string(), std::string("null"), std::string("[]"),
                                  std::string(kSampleJSON).substr(0, 120)}) {
    SCOPED_TRACE("bytes: " + text.substr(0, 30));
    EXPECT_THROW(decodeUpdateTransaction(text), DecodingError);
  }
}

TEST(Uuid, CanonicalTextIsUpperCaseAndRoundTrips) {
  EXPECT_EQ(kId.string(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  const Uuid fresh = Uuid::random();
  EXPECT_NE(fresh, Uuid::random());
  EXPECT_EQ(Uuid::parse(fresh.string()), fresh);
  EXPECT_EQ(fresh.string()[14], '4');  // version 4
  for (const char* bad :
       {"", "E621E1F8-C36C-495A-93FC-0C247A3E6E5", "E621E1F8-C36C-495A-93FC_0C247A3E6E5F",
        "G621E1F8-C36C-495A-93FC-0C247A3E6E5F", " E621E1F8-C36C-495A-93FC-0C247A3E6E5F"}) {
    SCOPED_TRACE(bad);
    EXPECT_FALSE(Uuid::parse(bad).has_value());
  }
}

}  // namespace
}  // namespace zev

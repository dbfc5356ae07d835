#include "core/updates/version_comparator.h"

#include <gtest/gtest.h>

#include <string>

namespace zev {
namespace {

std::string name(std::strong_ordering order) {
  if (order < 0) return "older";
  if (order > 0) return "newer";
  return "same";
}

TEST(CompareVersions, OrdersLikeSparkle) {
  struct Case {
    const char* a;
    const char* b;
    const char* aIs;  // older / same / newer than b
  };
  const Case cases[] = {
      {"1.0", "1.0", "same"},
      {"1.10", "1.9", "newer"},           // numbers by value, not text
      {"2.0", "10.0", "older"},
      {"1.0.1", "1.0", "newer"},          // longer with a number
      {"1.0b1", "1.0", "older"},          // longer with text: a pre-release
      {"1.0b2", "1.0b10", "older"},
      {"1.0b1", "1.0a9", "newer"},
      {"1.0rc1", "1.0b1", "newer"},
      {"1.0-1", "1.0", "newer"},          // '-' is a separator, then a number
      {"1.0+1", "1.0", "older"},          // '+' is text
      {"1.01", "1.1", "same"},            // leading zeros do not count
      {"1.0", "1a", "newer"},             // a separator beats text
      {"1.2", "1..2", "newer"},           // a number beats a separator
      {"", "0", "older"},
      {"", "", "same"},
      {"99999999999999999999999", "99999999999999999999998", "newer"},  // no overflow
      {"1.9.0", "1.8.3", "newer"},
      {"1 0", "1.0", "same"},             // whitespace separates too
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.a) + " vs " + c.b);
    EXPECT_EQ(name(compareVersions(c.a, c.b)), c.aIs);
    // Antisymmetric: swapping the arguments flips the answer.
    EXPECT_EQ(name(compareVersions(c.b, c.a)),
              std::string(c.aIs) == "same" ? "same"
              : std::string(c.aIs) == "newer" ? "older" : "newer");
  }
}

}  // namespace
}  // namespace zev

// Reflexivity and antisymmetry on any bytes are the fuzzer's; here the order
// itself.
#include "core/updates/version_comparator.h"

#include <gtest/gtest.h>

#include <string>

namespace zev {
namespace {

TEST(CompareVersions, OrdersLikeSparkle) {
  const struct {
    const char* a;
    const char* b;
    int aIs;  // -1 older, 0 same, 1 newer than b
  } cases[] = {
      {"1.10", "1.9", 1},        // numbers by value, not text
      {"1.0.1", "1.0", 1},       // longer with a number
      {"1.0b1", "1.0", -1},      // longer with text: a pre-release
      {"1.0b2", "1.0b10", -1},
      {"1.0b1", "1.0a9", 1},
      {"1.0-1", "1.0", 1},       // '-' is a separator, then a number
      {"1.0+1", "1.0", -1},      // '+' is text
      {"1.01", "1.1", 0},        // leading zeros do not count
      {"1.0", "1a", 1},          // a separator beats text
      {"1.2", "1..2", 1},        // a number beats a separator
      {"", "0", -1},
      {"99999999999999999999999", "99999999999999999999998", 1},  // no overflow
      {"1 0", "1.0", 0},         // whitespace separates too
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.a) + " vs " + c.b);
    const std::strong_ordering order = compareVersions(c.a, c.b);
    EXPECT_EQ((order > 0) - (order < 0), c.aIs);
  }
}

}  // namespace
}  // namespace zev

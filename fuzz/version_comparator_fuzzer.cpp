// compareVersions on arbitrary bytes: the input is two versions separated by
// the first NUL. The ordering must be reflexive and antisymmetric whatever the
// bytes, or the newest item of a feed would depend on the items' order.
#include <compare>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/updates/version_comparator.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::size_t split = input.find('\0');
  const std::string_view a = input.substr(0, split);
  const std::string_view b = split == std::string_view::npos ? "" : input.substr(split + 1);
  if (zev::compareVersions(a, a) != 0 || zev::compareVersions(b, b) != 0) __builtin_trap();
  const std::strong_ordering ab = zev::compareVersions(a, b);
  const std::strong_ordering ba = zev::compareVersions(b, a);
  if ((ab < 0) != (ba > 0) || (ab == 0) != (ba == 0)) __builtin_trap();
  return 0;
}

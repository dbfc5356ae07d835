// A 128-bit universally unique identifier, as the update records use to name
// each attempt. A plain value: copyable, comparable, hashable, thread-safe.
#ifndef ZEV_CORE_UUID_H_
#define ZEV_CORE_UUID_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace zev {

class Uuid {
 public:
  // The nil UUID, all zero bits.
  constexpr Uuid() = default;
  constexpr explicit Uuid(const std::array<uint8_t, 16>& bytes) : m_bytes(bytes) {}

  // A fresh random (version 4, RFC 4122 variant) UUID from std::random_device.
  static Uuid random();

  // Parses the canonical hyphenated form, 8-4-4-4-12 hexadecimal digits;
  // either letter case is accepted. Anything else yields no value.
  static std::optional<Uuid> parse(std::string_view text);

  // The canonical form in upper case, 36 characters:
  // "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
  std::string string() const;

  const std::array<uint8_t, 16>& bytes() const { return m_bytes; }

  auto operator<=>(const Uuid&) const = default;

 private:
  std::array<uint8_t, 16> m_bytes{};
};

}  // namespace zev

template <>
struct std::hash<zev::Uuid> {
  size_t operator()(const zev::Uuid& uuid) const noexcept;
};

#endif  // ZEV_CORE_UUID_H_

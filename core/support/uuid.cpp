#include "core/support/uuid.h"

#include <random>

namespace zev {

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

constexpr bool isHyphenPosition(size_t i) { return i == 8 || i == 13 || i == 18 || i == 23; }

}  // namespace

Uuid Uuid::random() {
  std::random_device device;
  std::array<uint8_t, 16> bytes{};
  for (size_t i = 0; i < bytes.size(); i += 4) {
    const uint32_t word = device();
    for (size_t j = 0; j < 4; ++j) bytes[i + j] = static_cast<uint8_t>(word >> (8 * j));
  }
  bytes[6] = static_cast<uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4
  bytes[8] = static_cast<uint8_t>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
  return Uuid(bytes);
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
  if (text.size() != 36) return std::nullopt;
  std::array<uint8_t, 16> bytes{};
  size_t nibble = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (isHyphenPosition(i)) {
      if (text[i] != '-') return std::nullopt;
      continue;
    }
    const int value = hexValue(text[i]);
    if (value < 0) return std::nullopt;
    bytes[nibble / 2] = static_cast<uint8_t>(bytes[nibble / 2] | (nibble % 2 ? value : value << 4));
    ++nibble;
  }
  return Uuid(bytes);
}

std::string Uuid::string() const {
  std::string text;
  text.reserve(36);
  for (size_t i = 0; i < m_bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back('-');
    text.push_back(kHexDigits[m_bytes[i] >> 4]);
    text.push_back(kHexDigits[m_bytes[i] & 0x0F]);
  }
  return text;
}

}  // namespace zev

size_t std::hash<zev::Uuid>::operator()(const zev::Uuid& uuid) const noexcept {
  // FNV-1a over the bytes: random UUIDs are already well mixed.
  uint64_t h = 14695981039346656037ull;
  for (uint8_t byte : uuid.bytes()) h = (h ^ byte) * 1099511628211ull;
  return static_cast<size_t>(h);
}

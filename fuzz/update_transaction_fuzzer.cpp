// decodeUpdateTransaction on arbitrary bytes: it either throws DecodingError
// or yields a record that survives encoding and decoding unchanged.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/support/decoding_error.h"
#include "core/updates/update_transaction.h"
#include "core/updates/update_verifier.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  std::optional<zev::UpdateTransaction> decoded;
  try {
    decoded = zev::decodeUpdateTransaction(bytes);
  } catch (const zev::DecodingError&) {
    return 0;  // the expected answer to most inputs
  }
  // Decoded strings come from valid JSON, so encoding must not throw.
  const std::string encoded = zev::encodeUpdateTransaction(*decoded);
  if (!(zev::decodeUpdateTransaction(encoded) == *decoded)) __builtin_trap();
  if (zev::encodeUpdateTransaction(zev::decodeUpdateTransaction(encoded)) != encoded)
    __builtin_trap();

  // What the launcher does next with a resumed record must not crash either.
  const zev::UpdateTransaction resumed = decoded->resumedAfterLaunch(decoded->updatedAt());
  const zev::UpdateVerifier verifier(resumed.targetVersion(), resumed.baseline());
  zev::UpdateHealth health{{resumed.targetVersion(), "", false, 0}, {}};
  for (const auto& stream : resumed.baseline().streams) {
    health.streams.push_back({stream.id, true, true, 0, stream.recording, stream.lastSegmentMS});
  }
  (void)verifier.assessment(health);
  return 0;
}

// The one error type the core throws when bytes on disk do not decode into the
// record they should hold: malformed JSON, a missing or mistyped field, an
// unknown enumeration string. The message names the offending field.
#ifndef ZEV_CORE_DECODING_ERROR_H_
#define ZEV_CORE_DECODING_ERROR_H_

#include <stdexcept>
#include <string>

namespace zev {

class DecodingError : public std::runtime_error {
 public:
  explicit DecodingError(const std::string& what) : std::runtime_error(what) {}
};

}  // namespace zev

#endif  // ZEV_CORE_DECODING_ERROR_H_

// A case-insensitive substring test that folds case the way a locale does and
// still tells letters with different diacritics apart: "Front" finds "FRONT",
// "strasse" finds "Straße", "cafe" does not find "café". In Turkish and
// Azerbaijani "I" pairs with "ı" and "İ" with "i".
//
// A match must begin and end on user-perceived character boundaries, so "e"
// is not found inside "e" + U+0301. Canonically equivalent spellings (é as one
// code point or as e + U+0301) match each other.
//
// A needle that folds to ASCII is matched byte by byte over ASCII text (in
// Turkish too, where "i" then only matches "i"); ICU (case folding,
// canonical decomposition, grapheme boundaries) is used only for text or
// needles where it can change the answer.
//
// Holds scratch buffers: use one instance from one thread at a time.
#ifndef ZEV_CORE_LOCALIZED_SEARCH_H_
#define ZEV_CORE_LOCALIZED_SEARCH_H_

#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace zev {

class LocalizedSearch {
 public:
  // `needle` is searched as given (callers trim it). `localeID` is an ICU
  // locale ID such as "tr_TR" or "de"; empty means the process's default
  // locale (from LANG / LC_ALL), i.e. the user's.
  explicit LocalizedSearch(std::string_view needle, std::string_view localeID = {});
  ~LocalizedSearch();
  LocalizedSearch(const LocalizedSearch&) = delete;
  LocalizedSearch& operator=(const LocalizedSearch&) = delete;

  // True when the needle occurs in `text` (UTF-8; invalid bytes count as
  // U+FFFD). An empty needle occurs everywhere.
  bool isFoundIn(std::string_view text);
  // isFoundIn for each of `texts`, into `found` (as many entries). Faster
  // than one call per text: the scan's setup is paid once.
  void findEach(std::span<const std::string_view> texts, bool* found);

  // Makes the search use its 16-byte vector scan where it would use the
  // 32-byte one, so tests can compare the two.
  void disableAVX2ForTesting() { m_useAVX2 = false; }

 private:
  struct Unicode;  // ICU state, built when first needed

  bool findASCII(std::string_view text, bool& sawNonASCII) const;
  bool findUnicode(std::string_view text);
  // The ASCII mode's answer for text with non-ASCII and no byte-wise match.
  bool mayFoldIntoMatch(std::string_view text);
  Unicode& unicode();

  std::string m_needleUTF8;
  bool m_turkic = false;
  bool m_empty = true;
  // The folded needle as ASCII, when it is ASCII and the byte-wise path is
  // exact for it; otherwise empty and every non-trivial test goes to ICU.
  bool m_asciiMode = false;
  std::string m_folded;
  std::string m_caseMask;  // per byte of m_folded: 0x20 for letters, else 0
  size_t m_anchor1 = 0;    // the needle's two rarest positions, in order
  size_t m_anchor2 = 0;
  bool m_useAVX2 = false;
  // Outside the ASCII mode: whether ASCII text can hold the needle at all.
  bool m_asciiTextCanMatch = false;
  std::unique_ptr<Unicode> m_unicode;
};

namespace detail {

// Non-ASCII code points whose case folding or decomposition yields an ASCII
// character that can stand on its own (ß gives "ss", K the Kelvin sign gives
// "k"). Only text holding one of them can match an ASCII needle other than
// byte by byte.
bool foldsToStandaloneASCII(char32_t c);

}  // namespace detail

}  // namespace zev

#endif  // ZEV_CORE_LOCALIZED_SEARCH_H_

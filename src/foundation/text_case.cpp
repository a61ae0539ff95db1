#include "foundation/text_case.h"

#include <locale.h>
#include <wctype.h>
#include <cctype>
#include <clocale>
#include <cstdint>

namespace halyard {
namespace {

// Case mapping comes from the C.UTF-8 locale, so it does not depend on the
// user's locale settings; without it only ASCII letters fold.
locale_t utf8CaseLocale() {
  static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr));
  return locale;
}

// The next character of `text` at `at`: a code point, or a byte that is not
// UTF-8 marked above the Unicode range so it only ever equals itself.
std::uint32_t nextCharacter(std::string_view text, std::size_t& at) {
  const auto lead = static_cast<unsigned char>(text[at]);
  const std::size_t length = lead < 0x80                   ? 1
                             : lead >= 0xf0 && lead < 0xf5 ? 4
                             : lead >= 0xe0                ? 3
                             : lead >= 0xc2                ? 2
                                                           : 0;
  if (length == 0 || at + length > text.size()) return 0x110000u + text[at++];
  std::uint32_t code = length == 1 ? lead : lead & (0xff >> (length + 1));
  for (std::size_t k = 1; k < length; ++k) {
    const auto next = static_cast<unsigned char>(text[at + k]);
    if ((next & 0xc0) != 0x80) return 0x110000u + text[at++];
    code = code << 6 | (next & 0x3f);
  }
  at += length;
  return code;
}

std::uint32_t folded(std::uint32_t code) {
  if (code >= 0x110000u) return code;
  if (code < 0x80 || !utf8CaseLocale())
    return code < 0x80 ? static_cast<std::uint32_t>(std::tolower(static_cast<int>(code))) : code;
  return static_cast<std::uint32_t>(towlower_l(static_cast<wint_t>(code), utf8CaseLocale()));
}

}  // namespace

bool equalIgnoringCase(std::string_view a, std::string_view b) {
  std::size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    if (folded(nextCharacter(a, i)) != folded(nextCharacter(b, j))) return false;
  }
  return i == a.size() && j == b.size();
}

}  // namespace halyard

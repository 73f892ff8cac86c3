#include "sql/errors.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <system_error>

namespace tarn::host {
namespace {

// The length of the first character of `text` in strict UTF-8; 0 if the bytes are no UTF-8.
std::size_t LengthOfCharacter(std::string_view text) noexcept {
  // The range of the second byte excludes overlong forms, surrogates and code points after
  // U+10FFFF.
  struct Lead {
    unsigned char first;
    unsigned char last;
    unsigned char second_first;
    unsigned char second_last;
    std::size_t length;
  };
  constexpr Lead kLeads[] = {
      {0x00, 0x7F, 0x00, 0x00, 1}, {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
      {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3},
      {0xF0, 0xF0, 0x90, 0xBF, 4}, {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4}};
  const auto byte = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  for (const Lead& lead : kLeads) {
    if (byte(0) < lead.first || byte(0) > lead.last) continue;
    if (lead.length > text.size()) return 0;
    for (std::size_t at = 1; at < lead.length; ++at) {
      const unsigned char least = at == 1 ? lead.second_first : 0x80;
      const unsigned char most = at == 1 ? lead.second_last : 0xBF;
      if (byte(at) < least || byte(at) > most) return 0;
    }
    return lead.length;
  }
  return 0;
}

// Makes the control characters of `text` visible, except for those in `kept`.
std::string EscapeControls(std::string_view text, std::string_view kept) {
  constexpr std::string_view kHexDigits = "0123456789ABCDEF";
  constexpr unsigned char kDelete = 0x7F;
  constexpr unsigned char kLastControl = 0x9F;
  constexpr std::string_view kNamed = "\n\t\r";
  constexpr std::string_view kNames = "ntr";
  std::string escaped;
  escaped.reserve(text.size());
  while (!text.empty()) {
    const std::size_t length = LengthOfCharacter(text);
    const std::string_view character = text.substr(0, std::max<std::size_t>(length, 1));
    text.remove_prefix(character.size());
    const auto last = static_cast<unsigned char>(character.back());
    const bool control =
        last < ' ' || (last >= kDelete && last <= kLastControl &&
                       (length < 2 || (length == 2 && character.front() == '\xC2')));
    const std::size_t named = kNamed.find(character);
    if (!control || kept.find(character) != std::string_view::npos) {
      escaped += character;
    } else if (named != std::string_view::npos) {
      escaped += {'\\', kNames[named]};
    } else {
      for (const char c : character) {
        const auto byte = static_cast<unsigned char>(c);
        escaped += {'\\', 'x', kHexDigits[byte >> 4U], kHexDigits[byte & 0xFU]};
      }
    }
  }
  return escaped;
}

}  // namespace

std::string SystemReason(std::string_view name, int error) {
  return std::string(name) + ": " + std::generic_category().message(error);
}

std::string OneLine(std::string_view text) { return EscapeControls(text, {}); }

std::string Printable(std::string_view text) { return EscapeControls(text, "\n\t"); }

}  // namespace tarn::host

#include "sql/errors.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

namespace tarn::host {
namespace {

// The length of the first character of `text` in strict UTF-8; 1 if the bytes are no UTF-8.
std::size_t LengthOfCharacter(std::string_view text) noexcept {
  // The least code points of characters of 2, 3 and 4 bytes. Overlong forms and characters that the
  // text cuts have less.
  constexpr std::uint32_t kLeast[] = {0x80, 0x800, 0x10000};
  constexpr std::size_t kLongest = 4;
  const auto lead = static_cast<unsigned char>(text[0]);
  const auto length = static_cast<std::size_t>(std::countl_one(lead));
  if (length < 2 || length > kLongest) return 1;
  std::uint32_t code = lead & (0xFFU >> length);
  for (const char c : text.substr(1, length - 1)) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::countl_one(byte) != 1) return 1;
    code = code << 6U | (byte & 0x3FU);
  }
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  return code >= kLeast[length - 2] && code <= 0x10FFFF && !surrogate ? length : 1;
}

// Makes the control characters of `text` visible, except for those in `kept`.
std::string EscapeControls(std::string_view text, std::string_view kept) {
  constexpr std::string_view kHexDigits = "0123456789ABCDEF";
  constexpr std::string_view kNamed = "\n\t\r";
  constexpr std::string_view kNames = "ntr";
  std::string escaped;
  escaped.reserve(text.size());
  while (!text.empty()) {
    const std::string_view character = text.substr(0, LengthOfCharacter(text));
    text.remove_prefix(character.size());
    const auto last = static_cast<unsigned char>(character.back());
    // U+0080 to U+009F in UTF-8, or one byte that is no UTF-8.
    const bool upper = character.size() == 1 || (character.size() == 2 && character[0] == '\xC2');
    const bool control = last < ' ' || last == 0x7F || (upper && last >= 0x80 && last <= 0x9F);
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

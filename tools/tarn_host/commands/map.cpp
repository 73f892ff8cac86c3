#include "tarn_host/commands.h"

#include <fmt/format.h>

#include <charconv>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <system_error>

#include "plugin/plugin.h"
#include "tarn_host/errors.h"
#include "tarn_host/output.h"

namespace tarn::host {
namespace {

// An int in decimal or, after "0x", in hexadecimal, with an optional sign. Throws ToolError.
int ParseStatus(const std::string& text) {
  std::string_view digits = text;
  const bool negative = digits.starts_with('-');
  if (negative || digits.starts_with('+')) digits.remove_prefix(1);
  const bool hexadecimal = digits.starts_with("0x") || digits.starts_with("0X");
  if (hexadecimal) digits.remove_prefix(2);

  // Unsigned, so that no second sign is taken.
  std::uint64_t magnitude = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, magnitude, hexadecimal ? 16 : 10);
  if (error == std::errc::invalid_argument || stop != end) {
    throw ToolError("map: \"" + text + "\" is not a whole number (decimal, or 0x and hexadecimal)");
  }
  constexpr std::uint64_t kLargest = std::numeric_limits<int>::max();
  if (error == std::errc::result_out_of_range || magnitude > kLargest + (negative ? 1 : 0)) {
    throw ToolError("map: " + text + " is out of range: a status is a signed 32-bit number");
  }
  const auto value = static_cast<std::int64_t>(magnitude);
  return static_cast<int>(negative ? -value : value);
}

}  // namespace

int Map(const MapOptions& options) {
  const int status = ParseStatus(options.status);
  const Plugin plugin(ChosenPlugin(options.plugin));
  const std::int64_t code = plugin.Product().MapErrorCode(status);
  Output output;
  output.Write(fmt::format("{} 0x{:X}\n", code, static_cast<std::uint64_t>(code)));
  output.Flush();
  return kExitSuccess;
}

}  // namespace tarn::host

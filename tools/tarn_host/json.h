#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace tarn::host {

// `document` as indented JSON that is safe to print on a terminal: all control characters, also DEL
// and U+0080 to U+009F, are escaped ("\u009b"). Bytes that are not UTF-8 become U+FFFD.
// Each line but the first begins with `margin` blanks more. Thread-safe.
std::string JsonText(const nlohmann::ordered_json& document, std::size_t margin = 0);

}  // namespace tarn::host

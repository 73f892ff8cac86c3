#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace tarn::host {

// `document` as indented JSON that is safe to print on a terminal: all control characters, also DEL
// and U+0080 to U+009F, are escaped ("\u009b"). Bytes that are not UTF-8 become U+FFFD.
// Thread-safe.
std::string JsonText(const nlohmann::ordered_json& document);

}  // namespace tarn::host

// Constants for the operations that read the system configuration.
#pragma once

#include <string_view>

namespace tarn::dbconfig {

// Index of the only entry of a database that is ever read.
inline constexpr unsigned int kEntryIndex = 0;

// Engine types with rules of their own, compared as whole texts and case-sensitively.
inline constexpr std::string_view kMySql = "mysql";
inline constexpr std::string_view kTundra = "tundra";

}  // namespace tarn::dbconfig

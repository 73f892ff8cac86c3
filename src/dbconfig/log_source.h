#pragma once

namespace tarn {

// The file that every log record of the plug-in names as its origin, wherever the code is.
inline constexpr const char* kSourceFile = "getproductinterface.cpp";

}  // namespace tarn

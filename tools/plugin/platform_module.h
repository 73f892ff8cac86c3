// A module of the tool that is loaded after a plug-in and so runs on the platform that the plug-in
// brought along. The tool itself is linked to no platform: the platform's symbols would win over
// those of the library under examination.
#pragma once

#include <map>
#include <string>

#include "impl_dao/product_interface.h"

namespace tarn::host {

// The module's file, below the folder of libraries.
inline constexpr const char* kPlatformModuleFile = "tarn_host/platform_module.so";

// What the module offers, under the name kPlatformModuleSymbol.
struct PlatformModule {
  // A function of the platform that the module was built and is running with. A plug-in that finds
  // the same function under the same name shares that platform, and values of the platform's types
  // may pass between the two.
  const void* platform_function;

  // Replaces `texts` with the connection properties that `product` sets. Throws what it throws.
  // Requires: the plug-in shares the module's platform.
  void (*read_properties)(impl_dao::CProductInterface& product,
                          std::map<std::string, std::string>& texts);
};
inline constexpr const char* kPlatformModuleSymbol = "tarn_platform_module";

}  // namespace tarn::host

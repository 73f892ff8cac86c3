// A module of the tool that is loaded after a plug-in, and so uses the platform library that the
// plug-in has loaded. The tool itself is linked to no platform library: its symbols would take
// precedence over those of the plug-in's platform.
#pragma once

#include <map>
#include <string>

#include "impl_dao/product_interface.h"

namespace tarn::host {

// The module's file, relative to the folder of libraries.
inline constexpr const char* kPlatformModuleFile = "tarn_host/platform_module.so";

// The functions that the module offers. It exports one such object, kPlatformModuleSymbol.
struct PlatformModule {
  // A function of the platform library that the module uses. If the plug-in finds the same function
  // under its name, both use one platform, and may exchange values of the platform's types.
  const void* platform_function;

  // Replaces `texts` with the connection properties that `product` sets. Lets its exceptions
  // through. The plug-in must use the module's platform library.
  void (*read_properties)(impl_dao::CProductInterface& product,
                          std::map<std::string, std::string>& texts);
};
inline constexpr const char* kPlatformModuleSymbol = "tarn_platform_module";

}  // namespace tarn::host

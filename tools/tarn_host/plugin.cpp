#include "tarn_host/plugin.h"

#include <dlfcn.h>

#include <string>

namespace tarn::host {

void Plugin::Close::operator()(void* handle) const noexcept { dlclose(handle); }

Plugin::Plugin(const std::string& path)
    : handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)), product_(nullptr) {
  // dlerror's text begins with the library's path.
  if (!handle_) throw PluginError("cannot load plug-in: " + std::string(dlerror()));
  const auto entry = reinterpret_cast<EntryFunction*>(dlsym(handle_.get(), kEntryFunction));
  if (entry == nullptr) throw PluginError("not a product plug-in: " + std::string(dlerror()));
  product_ = entry();
  if (product_ == nullptr) throw PluginError(path + ": " + kEntryFunction + " returned null");
}

}  // namespace tarn::host

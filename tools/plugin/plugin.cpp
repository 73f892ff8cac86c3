#include "plugin/plugin.h"

#include <dlfcn.h>

#include <filesystem>
#include <system_error>

namespace tarn::host {
namespace {

LibraryHandle Load(const std::string& path) {
  if (path.find('/') != std::string::npos) {
    std::error_code error;
    const auto type = std::filesystem::status(path, error).type();
    // If no file exists, the dynamic loader's own message is clearer.
    if (!error && type != std::filesystem::file_type::regular) {
      throw PluginError("cannot load plug-in: " + path + ": not a regular file");
    }
  }
  LibraryHandle handle(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL));
  // dlerror's text begins with the library's path.
  if (!handle) throw PluginError("cannot load plug-in: " + std::string(dlerror()));
  return handle;
}

}  // namespace

void CloseLibrary::operator()(void* handle) const noexcept { dlclose(handle); }

bool IsLoaded(const std::string& path) {
  return LibraryHandle(dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD)) != nullptr;
}

Plugin::Plugin(const std::string& path)
    : handle_(Load(path)),
      entry_(reinterpret_cast<EntryFunction*>(dlsym(handle_.get(), kEntryFunction))),
      product_(nullptr) {
  if (entry_ == nullptr) throw PluginError("not a product plug-in: " + std::string(dlerror()));
  product_ = entry_();
  if (product_ == nullptr) throw PluginError(path + ": " + kEntryFunction + " returned null");
}

}  // namespace tarn::host

#pragma once

#include <dlfcn.h>

#include <string>

namespace tarn::test {

// Whether the library at `path` is loaded in this process. What dlclose returns says nothing of it.
inline bool IsMapped(const std::string& path) {
  void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (library != nullptr) dlclose(library);
  return library != nullptr;
}

}  // namespace tarn::test

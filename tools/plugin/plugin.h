#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "impl_dao/product_interface.h"

namespace tarn::host {

// The plug-in's file name, which is its soname too.
inline constexpr const char* kPluginFile = "libtarn_interface_for_vesta.so";

// The one function that a plug-in exports: it takes nothing and returns the product.
inline constexpr const char* kEntryFunction = "GetProductInterfaceForVESTA";
using EntryFunction = impl_dao::CProductInterface*();

// A library that can't be used as a product plug-in. what() is one line that names the library, the
// symbol where that is the trouble, and the dynamic loader's reason.
class PluginError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct CloseLibrary {
  void operator()(void* handle) const noexcept;
};

// The dynamic loader's handle of a library, given back with the object.
using LibraryHandle = std::unique_ptr<void, CloseLibrary>;

// Whether the library that the dynamic loader knows as `path` is in this process. What dlclose
// returns says nothing of it.
bool IsLoaded(const std::string& path);

// A loaded product plug-in, unloaded with the object. The product must not be used after that, nor
// an exception that came from it be alive: its code would be gone.
class Plugin {
 public:
  // Loads the library at `path` with all its symbols resolved and none of them offered to other
  // libraries, and asks it for its product. A path with a slash must name a regular file: opening
  // anything else could block for ever. Throws PluginError.
  explicit Plugin(const std::string& path);

  // Never null. Owned by the library.
  impl_dao::CProductInterface& Product() const noexcept { return *product_; }

  // The library's entry function.
  EntryFunction& Entry() const noexcept { return *entry_; }

  // The dynamic loader's handle, for dlsym and dlinfo.
  void* Handle() const noexcept { return handle_.get(); }

 private:
  LibraryHandle handle_;
  EntryFunction* entry_;
  impl_dao::CProductInterface* product_;
};

}  // namespace tarn::host

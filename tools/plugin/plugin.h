#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "impl_dao/product_interface.h"

namespace tarn::host {

// The plug-in's file name and soname.
inline constexpr const char* kPluginFile = "libtarn_interface_for_vesta.so";

// The one function that a plug-in exports: it takes nothing and returns the product.
inline constexpr const char* kEntryFunction = "GetProductInterfaceForVESTA";
using EntryFunction = impl_dao::CProductInterface*();

// A library can't be used as a product plug-in. The message is one line that names the library, the
// symbol if one is missing, and the dynamic loader's reason.
class PluginError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct CloseLibrary {
  void operator()(void* handle) const noexcept;
};

// The dynamic loader's handle of a library, closed with the object.
using LibraryHandle = std::unique_ptr<void, CloseLibrary>;

// Whether the library that the dynamic loader knows as `path` is loaded in this process. The result
// of dlclose does not show that: it is 0 also for a library that stays loaded.
bool IsLoaded(const std::string& path);

// A loaded product plug-in, unloaded with the object. The product must not be used after that, and
// no exception that it threw may be alive then: their code is unloaded. Several threads may use one
// object.
class Plugin {
 public:
  // Loads the library at `path` with all its symbols resolved, offers none of them to other
  // libraries, and calls the entry function. A path with a slash must name a regular file: opening
  // a FIFO, for example, could block for ever. Throws PluginError.
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

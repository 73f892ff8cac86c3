#pragma once

#include <functional>
#include <string>
#include <vector>

#include "plugin/elf_library.h"

namespace tarn::host {

// One thing that makes a plug-in fit for a host, or unfit.
struct Fact {
  bool holds;
  // The fact and its detail, as in "soname: libtarn_interface_for_vesta.so". The detail may be text
  // from the library, of any bytes.
  std::string text;
};

// The facts that can be read from the library's file.
std::vector<Fact> CheckFile(const ElfLibrary& library);

// Loads the library at `path`, calls it and unloads it again. Hands each fact to `tell` at once,
// since the library may end the process in its next call. Lets the exceptions of `tell` through.
// `library` are the facts of the file at `path`. Not thread-safe.
void CheckLoaded(const std::string& path, const ElfLibrary& library,
                 const std::function<void(const Fact&)>& tell);

}  // namespace tarn::host

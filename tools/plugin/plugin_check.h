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

// The facts that the library's file alone tells.
std::vector<Fact> CheckFile(const ElfLibrary& library);

// Loads the library at `path`, calls it and unloads it again, and tells each fact at once, since
// what the library does next may end the process. `library` is that of the file at `path`. Throws
// what `tell` throws.
void CheckLoaded(const std::string& path, const ElfLibrary& library,
                 const std::function<void(const Fact&)>& tell);

}  // namespace tarn::host

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "plugin/elf_library.h"

namespace tarn::host {

// One thing that makes a plug-in fit for a host, or unfit: "soname", with the name it has.
struct Fact {
  bool holds;
  std::string name;
  // A stranger's text in part.
  std::string detail;
};

// The facts that the library's file alone tells.
std::vector<Fact> CheckFile(const ElfLibrary& library);

// Loads the library at `path`, calls it and unloads it again, and tells each fact at once, since
// what the library does next may end the process. `library` is that of the file at `path`. Throws
// what `tell` throws.
void CheckLoaded(const std::string& path, const ElfLibrary& library,
                 const std::function<void(const Fact&)>& tell);

}  // namespace tarn::host

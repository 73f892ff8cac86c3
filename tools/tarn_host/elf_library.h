#pragma once

#include <elf.h>

#include <optional>
#include <string>
#include <vector>

namespace tarn::host {

// What the file of a shared library says of itself, read without loading it.
struct ElfLibrary {
  struct Symbol {
    std::string name;
    // STB_GLOBAL, STB_WEAK or STB_GNU_UNIQUE.
    unsigned char binding;
  };

  // What the library offers to others.
  std::vector<Symbol> exported;
  // The libraries it asks for.
  std::vector<std::string> needed;
  std::optional<std::string> soname;
  // DF_1_NODELETE: it never leaves a process again.
  bool no_delete = false;
};

// Reads the 64-bit little-endian ELF shared object at `path`. Throws InputError when the file can't
// be read, is something else, or is damaged.
ElfLibrary ReadElfLibrary(const std::string& path);

}  // namespace tarn::host

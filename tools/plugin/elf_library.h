#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tarn::host {

// Names of symbols: the first few, and how many there are.
struct SymbolNames {
  std::vector<std::string> first;
  std::size_t count = 0;
};

// What the file of a shared library says of itself, read without loading it.
struct ElfLibrary {
  // What the library offers to others, and which of that is unique in a process, which pins it.
  SymbolNames exported;
  SymbolNames unique;
  // The libraries it asks for.
  std::vector<std::string> needed;
  // The folders, parted by colons, in which it looks for them, "$ORIGIN" being its own.
  std::string search_path;
  std::optional<std::string> soname;
  // DF_1_NODELETE: it never leaves a process again.
  bool no_delete = false;
};

// Reads the 64-bit little-endian ELF shared object at `path`. Reads only what it tells of, so that
// whoever made the file does not decide on time and memory. Throws InputError when the file can't
// be read, is no regular file, is something else, is damaged, or has tables beyond all measure.
ElfLibrary ReadElfLibrary(const std::string& path);

}  // namespace tarn::host

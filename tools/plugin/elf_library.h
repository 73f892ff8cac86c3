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

// What the file of a shared library says to the dynamic loader, read without loading it.
struct ElfLibrary {
  // The symbols that others can find in the library, and those of them that are unique in a
  // process, which pin the library there.
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

// Reads the 64-bit little-endian ELF shared object at `path` by what the dynamic loader reads: the
// program headers, the dynamic section at its address in memory, and the symbols that the hash
// table leads to. Section headers, which the loader ignores, may be forged or absent. Relocations,
// which can change all of that while the library is loaded, are not applied.
//
// Time and memory are bounded whatever the file holds: a table is read once, in blocks. Throws
// InputError when the file can't be read, is no regular file, is something else, is damaged, or has
// more than 4,096 dynamic entries or 256 needed libraries.
ElfLibrary ReadElfLibrary(const std::string& path);

}  // namespace tarn::host

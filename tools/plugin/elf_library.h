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

// The facts in the file of a shared library that the dynamic loader uses, read without loading
// the library.
struct ElfLibrary {
  // The symbols that other libraries can find in this one.
  SymbolNames exported;
  // Those of them that are unique in a process. They keep the library from being unloaded.
  SymbolNames unique;
  // The names of the libraries that this one needs, as in "libc.so.6".
  std::vector<std::string> needed;
  // The folders in which the loader looks for them, separated by colons. "$ORIGIN" is the folder of
  // the library itself.
  std::string search_path;
  std::optional<std::string> soname;
  // DF_1_NODELETE: the library is never unloaded.
  bool no_delete = false;
};

// Reads the 64-bit little-endian ELF shared object at `path`. Like the dynamic loader, it reads the
// program headers, the dynamic section at its address in memory, and the symbols that the hash
// table leads to. The loader ignores section headers, so they may be forged or absent. Relocations
// are not applied, though they can change all of that while the library is loaded.
//
// Each table is read once, in blocks, so time is linear in the file and memory is bounded. Throws
// InputError if the file can't be read, is not a regular file, is not such an object, is damaged,
// or has more than 4,096 dynamic entries or 256 needed libraries. Thread-safe.
ElfLibrary ReadElfLibrary(const std::string& path);

}  // namespace tarn::host

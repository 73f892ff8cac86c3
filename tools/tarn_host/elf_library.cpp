#include "tarn_host/elf_library.h"

#include <elf.h>

#include <cstddef>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "tarn_host/errors.h"
#include "tarn_host/input/reader.h"

namespace tarn::host {
namespace {

// The bytes of an ELF file, every access to which is checked.
class ElfImage {
 public:
  ElfImage(std::string name, std::string bytes)
      : name_(std::move(name)), bytes_(std::move(bytes)) {}

  [[noreturn]] void Fail(const char* reason) const { throw InputError(name_ + ": " + reason); }

  bool StartsWith(std::string_view magic) const noexcept { return bytes_.compare(0, magic.size(), magic) == 0; }

  // The T at `offset`, wherever that is aligned.
  template <typename T>
  T At(std::size_t offset) const {
    static_assert(std::is_trivially_copyable_v<T>);
    if (offset > bytes_.size() || bytes_.size() - offset < sizeof(T)) Fail("damaged ELF file");
    T value;
    std::memcpy(&value, bytes_.data() + offset, sizeof value);
    return value;
  }

  // The text at `offset` of the string table that `section` describes.
  std::string Text(const Elf64_Shdr& section, std::size_t offset) const {
    if (section.sh_offset > bytes_.size()) Fail("damaged ELF file");
    const std::string_view table =
        std::string_view(bytes_).substr(section.sh_offset, section.sh_size);
    const std::size_t end = table.find('\0', offset);
    if (end == std::string_view::npos) Fail("damaged ELF file");
    return std::string(table.substr(offset, end - offset));
  }

  // Calls `use` with each T of the table that `section` describes.
  template <typename T, typename Use>
  void ForEach(const Elf64_Shdr& section, Use use) const {
    const std::size_t count = section.sh_size / sizeof(T);
    for (std::size_t index = 0; index < count; ++index) {
      use(At<T>(section.sh_offset + index * sizeof(T)));
    }
  }

 private:
  std::string name_;
  std::string bytes_;
};

bool IsExported(const Elf64_Sym& symbol) noexcept {
  const unsigned binding = ELF64_ST_BIND(symbol.st_info);
  const unsigned visibility = ELF64_ST_VISIBILITY(symbol.st_other);
  return symbol.st_shndx != SHN_UNDEF && binding != STB_LOCAL &&
         (visibility == STV_DEFAULT || visibility == STV_PROTECTED);
}

}  // namespace

ElfLibrary ReadElfLibrary(const std::string& path) {
  const ElfImage image(path, ReadAll(path));
  if (!image.StartsWith(ELFMAG)) image.Fail("not an ELF file");
  const auto header = image.At<Elf64_Ehdr>(0);
  if (header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_ident[EI_DATA] != ELFDATA2LSB) {
    image.Fail("not a 64-bit little-endian ELF file");
  }
  if (header.e_type != ET_DYN) image.Fail("not an ELF shared object");

  std::vector<Elf64_Shdr> sections;
  for (std::size_t index = 0; index < header.e_shnum; ++index) {
    sections.push_back(
        image.At<Elf64_Shdr>(header.e_shoff + index * std::size_t{header.e_shentsize}));
  }
  ElfLibrary library;
  bool dynamic = false;
  for (const Elf64_Shdr& section : sections) {
    if (section.sh_type != SHT_DYNSYM && section.sh_type != SHT_DYNAMIC) continue;
    if (section.sh_link >= sections.size()) image.Fail("damaged ELF file");
    const Elf64_Shdr& strings = sections[section.sh_link];
    if (section.sh_type == SHT_DYNSYM) {
      image.ForEach<Elf64_Sym>(section, [&](const Elf64_Sym& symbol) {
        if (!IsExported(symbol)) return;
        const auto binding = static_cast<unsigned char>(ELF64_ST_BIND(symbol.st_info));
        library.exported.push_back({image.Text(strings, symbol.st_name), binding});
      });
    } else {
      dynamic = true;
      image.ForEach<Elf64_Dyn>(section, [&](const Elf64_Dyn& entry) {
        if (entry.d_tag == DT_NEEDED) {
          library.needed.push_back(image.Text(strings, entry.d_un.d_val));
        } else if (entry.d_tag == DT_SONAME) {
          library.soname = image.Text(strings, entry.d_un.d_val);
        } else if (entry.d_tag == DT_FLAGS_1) {
          if ((entry.d_un.d_val & DF_1_PIE) != 0) image.Fail("an executable, not a shared object");
          library.no_delete = (entry.d_un.d_val & DF_1_NODELETE) != 0;
        }
      });
    }
  }
  if (!dynamic) image.Fail("not an ELF shared object: it has no dynamic section");
  return library;
}

}  // namespace tarn::host

#include "plugin/elf_library.h"

#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "sql/errors.h"

namespace tarn::host {
namespace {

// Far above any library's, and small enough to be read by whoever asks.
constexpr std::uint64_t kMaxTableBytes = std::uint64_t{64} << 20U;
constexpr std::uint64_t kMaxNameBytes = std::uint64_t{16} << 10U;
constexpr std::size_t kMaxNeeded = 256;
constexpr std::size_t kMaxShownSymbols = 5;

// An ELF file, every access to which is checked. What it holds is not trusted.
class ElfFile {
 public:
  explicit ElfFile(const std::string& path)
      : path_(path),
        // A FIFO without a writer would block otherwise.
        fd_(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
    if (fd_ < 0) throw InputError(SystemReason(path_, errno));
    struct stat status {};
    if (fstat(fd_, &status) == 0 && S_ISREG(status.st_mode)) {
      size_ = static_cast<std::uint64_t>(status.st_size);
    } else {
      close(fd_);
      Fail("not a regular file");
    }
  }
  ElfFile(const ElfFile&) = delete;
  ElfFile& operator=(const ElfFile&) = delete;
  ~ElfFile() { close(fd_); }

  std::uint64_t Size() const noexcept { return size_; }

  [[noreturn]] void Fail(const char* reason) const { throw InputError(path_ + ": " + reason); }

  // The table of T that lies at `offset`, `bytes` long.
  template <typename T>
  std::vector<T> Table(std::uint64_t offset, std::uint64_t bytes) const {
    static_assert(std::is_trivially_copyable_v<T>);
    if (offset > size_ || bytes > size_ - offset) Fail("damaged ELF file");
    if (bytes > kMaxTableBytes) Fail("a table of more than 64 MiB");
    std::vector<T> table(bytes / sizeof(T));
    ReadInto(table.data(), table.size() * sizeof(T), offset);
    return table;
  }
  template <typename T>
  std::vector<T> Table(const Elf64_Shdr& section) const {
    return Table<T>(section.sh_offset, section.sh_size);
  }

  // The text at `offset` of the string table that `section` describes.
  std::string Text(const Elf64_Shdr& section, std::uint64_t offset) const {
    if (section.sh_offset > size_ || offset >= section.sh_size) Fail("damaged ELF file");
    const std::vector<char> bytes =
        Table<char>(section.sh_offset + offset, std::min(section.sh_size - offset, kMaxNameBytes));
    const auto end = std::find(bytes.begin(), bytes.end(), '\0');
    if (end == bytes.end()) Fail("damaged ELF file: a name without an end");
    return {bytes.begin(), end};
  }

 private:
  void ReadInto(void* to, std::size_t size, std::uint64_t offset) const {
    auto* rest = static_cast<char*>(to);
    while (size > 0) {
      const ssize_t got = pread(fd_, rest, size, static_cast<off_t>(offset));
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) throw InputError(SystemReason(path_, errno));
      if (got == 0) Fail("it became shorter while it was read");
      rest += got;
      size -= static_cast<std::size_t>(got);
      offset += static_cast<std::uint64_t>(got);
    }
  }

  std::string path_;
  int fd_;
  std::uint64_t size_ = 0;
};

bool IsExported(const Elf64_Sym& symbol) noexcept {
  const unsigned binding = ELF64_ST_BIND(symbol.st_info);
  const unsigned visibility = ELF64_ST_VISIBILITY(symbol.st_other);
  return symbol.st_shndx != SHN_UNDEF && binding != STB_LOCAL &&
         (visibility == STV_DEFAULT || visibility == STV_PROTECTED);
}

std::vector<Elf64_Shdr> ReadSections(const ElfFile& file) {
  const auto magic = file.Table<char>(0, std::min<std::uint64_t>(SELFMAG, file.Size()));
  if (std::string(magic.begin(), magic.end()) != ELFMAG) file.Fail("not an ELF file");
  const Elf64_Ehdr header = file.Table<Elf64_Ehdr>(0, sizeof(Elf64_Ehdr)).front();
  if (header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_ident[EI_DATA] != ELFDATA2LSB) {
    file.Fail("not a 64-bit little-endian ELF file");
  }
  if (header.e_type != ET_DYN) file.Fail("not an ELF shared object");
  if (header.e_shnum != 0 && header.e_shentsize != sizeof(Elf64_Shdr)) {
    file.Fail("damaged ELF file");
  }
  return file.Table<Elf64_Shdr>(header.e_shoff, header.e_shnum * sizeof(Elf64_Shdr));
}

// The one section of that type, or null.
const Elf64_Shdr* OnlySection(const ElfFile& file, const std::vector<Elf64_Shdr>& sections,
                              std::uint32_t type) {
  const Elf64_Shdr* only = nullptr;
  for (const Elf64_Shdr& section : sections) {
    if (section.sh_type != type) continue;
    // Each of them could name the same bytes, any number of times.
    if (only != nullptr) file.Fail("damaged ELF file: two tables where one belongs");
    if (section.sh_link >= sections.size()) file.Fail("damaged ELF file");
    only = &section;
  }
  return only;
}

}  // namespace

ElfLibrary ReadElfLibrary(const std::string& path) {
  const ElfFile file(path);
  const std::vector<Elf64_Shdr> sections = ReadSections(file);
  ElfLibrary library;

  const Elf64_Shdr* const dynamic = OnlySection(file, sections, SHT_DYNAMIC);
  if (dynamic == nullptr) file.Fail("not an ELF shared object: it has no dynamic section");
  const auto text_of = [&](const Elf64_Dyn& entry) {
    return file.Text(sections[dynamic->sh_link], entry.d_un.d_val);
  };
  for (const Elf64_Dyn& entry : file.Table<Elf64_Dyn>(*dynamic)) {
    switch (entry.d_tag) {
      case DT_NEEDED:
        if (library.needed.size() == kMaxNeeded) file.Fail("it needs more than 256 libraries");
        library.needed.push_back(text_of(entry));
        break;
      case DT_SONAME:
        library.soname = text_of(entry);
        break;
      case DT_RUNPATH:
      case DT_RPATH:
        library.search_path = text_of(entry);
        break;
      case DT_FLAGS_1:
        if ((entry.d_un.d_val & DF_1_PIE) != 0) file.Fail("an executable, not a shared object");
        library.no_delete = (entry.d_un.d_val & DF_1_NODELETE) != 0;
        break;
      default:
        break;
    }
    if (entry.d_tag == DT_NULL) break;
  }

  if (const Elf64_Shdr* const symbols = OnlySection(file, sections, SHT_DYNSYM)) {
    const auto add = [&](SymbolNames& names, const Elf64_Sym& symbol) {
      if (++names.count > kMaxShownSymbols) return;
      names.first.push_back(file.Text(sections[symbols->sh_link], symbol.st_name));
    };
    for (const Elf64_Sym& symbol : file.Table<Elf64_Sym>(*symbols)) {
      if (!IsExported(symbol)) continue;
      add(library.exported, symbol);
      if (ELF64_ST_BIND(symbol.st_info) == STB_GNU_UNIQUE) add(library.unique, symbol);
    }
  }
  return library;
}

}  // namespace tarn::host

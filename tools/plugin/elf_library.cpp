#include "plugin/elf_library.h"

#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <map>
#include <type_traits>

#include "sql/errors.h"

namespace tarn::host {
namespace {

// No real library comes near these limits.
constexpr std::uint64_t kMaxDynamicEntries = 4096;
constexpr std::uint64_t kMaxNameBytes = std::uint64_t{16} << 10U;
constexpr std::size_t kMaxNeeded = 256;
// How many entries of a table are in memory at once.
constexpr std::uint64_t kBlock = 4096;
constexpr std::size_t kMaxShownSymbols = 5;

// An ELF shared object's file, addressed as the dynamic loader maps it into memory. The content is
// not trusted: every access is checked.
class ElfImage {
 public:
  explicit ElfImage(const std::string& path) : path_(path), file_(path) {
    struct stat status {};
    if (fstat(file_.fd, &status) != 0 || !S_ISREG(status.st_mode)) Fail("not a regular file");
    size_ = static_cast<std::uint64_t>(status.st_size);
    ReadHeaders();
  }

  [[noreturn]] void Fail(const char* reason) const { throw InputError(path_ + ": " + reason); }
  void Require(bool sound) const {
    if (!sound) Fail("damaged ELF file");
  }

  Elf64_Addr DynamicSection() const noexcept { return dynamic_section_; }

  // `count` objects of T at `address`, or as many as the file has from there on.
  template <typename T>
  std::vector<T> UpTo(std::uint64_t count, Elf64_Addr address) const {
    static_assert(std::is_trivially_copyable_v<T>);
    for (const Elf64_Phdr& segment : segments_) {
      // An address before the segment wraps round to an offset beyond its end.
      const std::uint64_t offset = address - segment.p_vaddr;
      if (offset >= segment.p_filesz) continue;
      std::vector<T> objects(std::min(count, (segment.p_filesz - offset) / sizeof(T)));
      ReadInto(objects.data(), objects.size() * sizeof(T), segment.p_offset + offset);
      return objects;
    }
    return {};
  }

  template <typename T>
  std::vector<T> Table(std::uint64_t count, Elf64_Addr address) const {
    std::vector<T> table = UpTo<T>(count, address);
    Require(table.size() == count);
    return table;
  }

  // Calls `take` with each of the `count` objects of T at `address` until it returns false.
  template <typename T, typename Take>
  void ForEach(std::uint64_t count, Elf64_Addr address, Take take) const {
    for (std::uint64_t done = 0; done < count;) {
      const auto block = UpTo<T>(std::min(kBlock, count - done), address + done * sizeof(T));
      Require(!block.empty());
      for (const T& object : block) {
        if (!take(object)) return;
      }
      done += block.size();
    }
  }

  std::string Text(Elf64_Addr address) const {
    const std::vector<char> bytes = UpTo<char>(kMaxNameBytes, address);
    const auto end = std::find(bytes.begin(), bytes.end(), '\0');
    Require(end != bytes.end());
    return {bytes.begin(), end};
  }

 private:
  void ReadHeaders() {
    Elf64_Ehdr header{};
    ReadInto(&header, std::min<std::uint64_t>(size_, sizeof header), 0);
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) Fail("not an ELF file");
    if (header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_ident[EI_DATA] != ELFDATA2LSB) {
      Fail("not a 64-bit little-endian ELF file");
    }
    if (header.e_type != ET_DYN) Fail("not an ELF shared object");
    Require(header.e_phentsize == sizeof(Elf64_Phdr) && size_ >= sizeof header);
    std::vector<Elf64_Phdr> headers(header.e_phnum);
    const std::uint64_t bytes = headers.size() * sizeof(Elf64_Phdr);
    Require(header.e_phoff <= size_ && bytes <= size_ - header.e_phoff);
    ReadInto(headers.data(), bytes, header.e_phoff);

    const auto page = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    std::uint64_t mapped_end = 0;
    for (const Elf64_Phdr& it : headers) {
      // Of several, the loader takes the last.
      if (it.p_type == PT_DYNAMIC) dynamic_section_ = it.p_vaddr;
      if (it.p_type != PT_LOAD) continue;
      Require(it.p_filesz <= it.p_memsz && it.p_memsz <= ~it.p_vaddr - page &&
              it.p_offset <= size_ && it.p_filesz <= size_ - it.p_offset);
      // Of two segments in one page the later would hide the earlier.
      Require(it.p_vaddr / page >= mapped_end);
      mapped_end = (it.p_vaddr + it.p_memsz + page - 1) / page;
      segments_.push_back(it);
    }
    if (dynamic_section_ == 0) Fail("not an ELF shared object: it has no dynamic section");
  }

  void ReadInto(void* to, std::size_t size, std::uint64_t offset) const {
    const ssize_t got = pread(file_.fd, to, size, static_cast<off_t>(offset));
    if (got < 0) throw InputError(SystemReason(path_, errno));
    if (static_cast<std::size_t>(got) != size) Fail("it became shorter while it was read");
  }

  struct File {
    // A FIFO without a writer would block without O_NONBLOCK.
    explicit File(const std::string& path)
        : fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
      if (fd < 0) throw InputError(SystemReason(path, errno));
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() { close(fd); }
    int fd;
  };

  std::string path_;
  File file_;
  std::uint64_t size_ = 0;
  std::vector<Elf64_Phdr> segments_;
  Elf64_Addr dynamic_section_ = 0;
};

// The values of the dynamic section by their tags. If a tag comes twice, its last value counts.
using DynamicValues = std::map<Elf64_Sxword, Elf64_Xword>;

// The number of symbols in the table at DT_GNU_HASH: the last one ends the chain that begins last.
std::uint64_t CountByGnuHash(const ElfImage& image, Elf64_Addr hash) {
  enum Head { kBuckets, kFirstSymbol, kBloomWords, kBloomShift, kHeadWords };
  const auto head = image.Table<Elf64_Word>(kHeadWords, hash);
  const Elf64_Addr buckets = hash + kHeadWords * sizeof(Elf64_Word) +
                             std::uint64_t{head[kBloomWords]} * sizeof(Elf64_Xword);
  std::uint64_t last = 0;
  image.ForEach<Elf64_Word>(head[kBuckets], buckets, [&](Elf64_Word bucket) {
    image.Require(bucket == 0 || bucket >= head[kFirstSymbol]);
    last = std::max<std::uint64_t>(last, bucket);
    return true;
  });
  if (last == 0) return 0;
  const Elf64_Addr chain =
      buckets + (head[kBuckets] + last - head[kFirstSymbol]) * sizeof(Elf64_Word);
  image.ForEach<Elf64_Word>(~0U, chain, [&last](Elf64_Word word) {
    ++last;
    return (word & 1U) == 0;
  });
  return last;
}

// The number of symbols in the table at DT_HASH.
std::uint64_t CountByHash(const ElfImage& image, Elf64_Addr hash) {
  enum Head { kBuckets, kSymbols, kHeadWords };
  const auto head = image.Table<Elf64_Word>(kHeadWords, hash);
  image.ForEach<Elf64_Word>(std::uint64_t{head[kBuckets]} + head[kSymbols],
                            hash + kHeadWords * sizeof(Elf64_Word), [&](Elf64_Word symbol) {
                              image.Require(symbol < head[kSymbols]);
                              return true;
                            });
  return head[kSymbols];
}

// Whether the loader finds the symbol by its name.
bool IsExported(const Elf64_Sym& symbol) noexcept {
  const unsigned visibility = ELF64_ST_VISIBILITY(symbol.st_other);
  return (symbol.st_shndx != SHN_UNDEF || symbol.st_value != 0) &&
         ELF64_ST_BIND(symbol.st_info) != STB_LOCAL &&
         (visibility == STV_DEFAULT || visibility == STV_PROTECTED);
}

void ReadSymbols(const ElfImage& image, const DynamicValues& values, ElfLibrary& library) {
  // The loader finds nothing without a hash table. It uses DT_HASH if there is no DT_GNU_HASH.
  const std::uint64_t count = values.contains(DT_GNU_HASH)
                                  ? CountByGnuHash(image, values.at(DT_GNU_HASH))
                              : values.contains(DT_HASH) ? CountByHash(image, values.at(DT_HASH))
                                                         : 0;
  if (count == 0) return;
  image.Require(values.contains(DT_SYMTAB) && values.contains(DT_STRTAB));
  const auto add = [&](SymbolNames& names, const Elf64_Sym& symbol) {
    if (++names.count > kMaxShownSymbols) return;
    names.first.push_back(image.Text(values.at(DT_STRTAB) + symbol.st_name));
  };
  image.ForEach<Elf64_Sym>(count, values.at(DT_SYMTAB), [&](const Elf64_Sym& symbol) {
    if (!IsExported(symbol)) return true;
    add(library.exported, symbol);
    if (ELF64_ST_BIND(symbol.st_info) == STB_GNU_UNIQUE) add(library.unique, symbol);
    return true;
  });
}

}  // namespace

ElfLibrary ReadElfLibrary(const std::string& path) {
  const ElfImage image(path);
  DynamicValues values;
  std::vector<Elf64_Xword> needed;
  bool at_end = false;
  for (const Elf64_Dyn& entry : image.UpTo<Elf64_Dyn>(kMaxDynamicEntries, image.DynamicSection())) {
    at_end = entry.d_tag == DT_NULL;
    if (at_end) break;
    values[entry.d_tag] = entry.d_un.d_val;
    if (entry.d_tag == DT_NEEDED) needed.push_back(entry.d_un.d_val);
  }
  image.Require(at_end);
  const Elf64_Xword flags = values[DT_FLAGS_1];
  if ((flags & DF_1_PIE) != 0) image.Fail("an executable, not a shared object");
  if (needed.size() > kMaxNeeded) image.Fail("it needs more than 256 libraries");

  ElfLibrary library;
  library.no_delete = (flags & DF_1_NODELETE) != 0;
  const auto text = [&](Elf64_Xword name) { return image.Text(values[DT_STRTAB] + name); };
  for (const Elf64_Xword name : needed) library.needed.push_back(text(name));
  if (values.contains(DT_SONAME)) library.soname = text(values[DT_SONAME]);
  for (const Elf64_Sxword tag : {DT_RPATH, DT_RUNPATH}) {
    if (values.contains(tag)) library.search_path = text(values[tag]);
  }
  ReadSymbols(image, values, library);
  return library;
}

}  // namespace tarn::host

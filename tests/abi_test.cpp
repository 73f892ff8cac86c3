// What the dynamic loader and a host that knows nothing of Boost see of the built library.
#include <dlfcn.h>
#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <span>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

#include "support/mapped.h"
#include "tarn_host/plugin.h"

namespace {

using tarn::host::Plugin;
using tarn::test::IsMapped;
using testing::ElementsAre;

// A 64-bit little-endian ELF file in memory.
class ElfFile {
 public:
  explicit ElfFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    bytes_.assign(std::istreambuf_iterator<char>(file), {});
    if (bytes_.size() < sizeof(Elf64_Ehdr) || std::memcmp(bytes_.data(), ELFMAG, SELFMAG) != 0) {
      throw std::runtime_error("no ELF file: " + path);
    }
    const Elf64_Ehdr header = At<Elf64_Ehdr>(0);
    sections_ = Table<Elf64_Shdr>(header.e_shoff, header.e_shnum);
  }

  // The entries of the first section of that type.
  template <typename Entry>
  std::vector<Entry> Entries(Elf64_Word section_type) const {
    const Elf64_Shdr& section = Section(section_type);
    return Table<Entry>(section.sh_offset, section.sh_size / sizeof(Entry));
  }

  // The text at `offset` of the string table that the section of that type links to.
  std::string Text(Elf64_Word section_type, std::size_t offset) const {
    const Elf64_Shdr& strings = sections_.at(Section(section_type).sh_link);
    return bytes_.data() + strings.sh_offset + offset;
  }

 private:
  const Elf64_Shdr& Section(Elf64_Word type) const {
    for (const Elf64_Shdr& section : sections_) {
      if (section.sh_type == type) return section;
    }
    throw std::runtime_error("no section of type " + std::to_string(type));
  }

  template <typename Entry>
  Entry At(std::size_t offset) const {
    Entry entry;
    std::memcpy(&entry, std::span(bytes_).subspan(offset, sizeof entry).data(), sizeof entry);
    return entry;
  }

  template <typename Entry>
  std::vector<Entry> Table(std::size_t offset, std::size_t count) const {
    std::vector<Entry> entries;
    for (std::size_t i = 0; i < count; ++i)
      entries.push_back(At<Entry>(offset + i * sizeof(Entry)));
    return entries;
  }

  std::string bytes_;
  std::vector<Elf64_Shdr> sections_;
};

struct Symbol {
  std::string name;
  unsigned int binding;
  unsigned int visibility;
};

std::vector<Symbol> DefinedDynamicSymbols(const ElfFile& file) {
  std::vector<Symbol> symbols;
  for (const Elf64_Sym& symbol : file.Entries<Elf64_Sym>(SHT_DYNSYM)) {
    if (symbol.st_shndx == SHN_UNDEF) continue;
    symbols.push_back({file.Text(SHT_DYNSYM, symbol.st_name),
                       static_cast<unsigned int>(ELF64_ST_BIND(symbol.st_info)),
                       static_cast<unsigned int>(ELF64_ST_VISIBILITY(symbol.st_other))});
  }
  return symbols;
}

TEST(SharedObject, ExportsOneGlobalFunctionAndNothingElse) {
  const std::vector<Symbol> symbols = DefinedDynamicSymbols(ElfFile(TARN_PLUGIN_PATH));
  ASSERT_THAT(symbols, ElementsAre(testing::Field(&Symbol::name, "GetProductInterfaceForVESTA")));
  EXPECT_EQ(symbols[0].binding, static_cast<unsigned int>(STB_GLOBAL));
  EXPECT_EQ(symbols[0].visibility, static_cast<unsigned int>(STV_DEFAULT));
}

TEST(SharedObject, NamesItselfAndMayBeUnloaded) {
  const ElfFile file(TARN_PLUGIN_PATH);
  std::string soname;
  std::uint64_t flags = 0;
  for (const Elf64_Dyn& entry : file.Entries<Elf64_Dyn>(SHT_DYNAMIC)) {
    if (entry.d_tag == DT_SONAME) soname = file.Text(SHT_DYNAMIC, entry.d_un.d_val);
    if (entry.d_tag == DT_FLAGS_1) flags = entry.d_un.d_val;
  }
  EXPECT_EQ(soname, "libtarn_interface_for_vesta.so");
  EXPECT_EQ(flags & (DF_1_NODELETE | DF_1_NOOPEN), 0U);
}

TEST(Product, IsOneObject) {
  const Plugin plugin(TARN_PLUGIN_PATH);
  const Plugin again(TARN_PLUGIN_PATH);
  EXPECT_EQ(&plugin.Product(), &again.Product());
}

TEST(Product, SaysItsClassThroughTheInterface) {
  const Plugin plugin(TARN_PLUGIN_PATH);
  const impl_dao::CProductInterface& product = plugin.Product();
  EXPECT_STREQ(typeid(product).name(), "22CProductInterface_Tarn");
}

TEST(Product, MapsEveryStatusButZeroToOneCode) {
  const Plugin plugin(TARN_PLUGIN_PATH);
  impl_dao::CProductInterface& product = plugin.Product();
  EXPECT_EQ(product.MapErrorCode(0), 0);
  for (const int status : {1, -1, INT_MAX, INT_MIN}) {
    EXPECT_EQ(product.MapErrorCode(status), INT64_C(184549395)) << status;
  }
}

// Not through Plugin: nothing but dlopen, dlsym and one call stands before the first use.
TEST(Product, WorksRightAfterLoading) {
  void* library = dlopen(TARN_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  const auto entry = reinterpret_cast<impl_dao::CProductInterface* (*)()>(
      dlsym(library, "GetProductInterfaceForVESTA"));
  ASSERT_NE(entry, nullptr) << dlerror();
  std::string sql = "select 0x10";
  entry()->NormalizeSQL(sql);
  EXPECT_EQ(sql, "SELECT 16");
  dlclose(library);
}

TEST(Unloading, LeavesNothingMappedAfterRealWork) {
  constexpr int kRounds = 100;
  for (int round = 0; round < kRounds; ++round) {
    {
      const Plugin plugin(TARN_PLUGIN_PATH);
      std::string sql = "select t1.a from tab t1 where t1.b = 1.50";
      plugin.Product().NormalizeSQL(sql);
      ASSERT_EQ(sql, "SELECT a FROM tab ____t1 WHERE b = 1.5");
      std::string too_large = "x=1.0e999";
      ASSERT_THROW(plugin.Product().NormalizeSQL(too_large), std::bad_cast);
      ASSERT_TRUE(IsMapped(TARN_PLUGIN_PATH));
    }
    ASSERT_FALSE(IsMapped(TARN_PLUGIN_PATH)) << "round " << round;
  }
}

}  // namespace

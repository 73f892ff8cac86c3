#include "plugin/plugin_check.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <fmt/format.h>
#include <link.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>
#include <sstream>
#include <string_view>
#include <system_error>
#include <typeinfo>

#include "plugin/normalize_call.h"
#include "plugin/plugin.h"

namespace tarn::host {
namespace {

using Tell = std::function<void(const Fact&)>;

constexpr std::size_t kSlots = 9;
constexpr std::string_view kProductType = "CProductInterface_Tarn";
constexpr const char* kSampleStatement =
    "select t3.a, 1.50 from tab t3 where (t3.id = 0x1F and t3.b >= 2.5E3)";
constexpr std::string_view kSampleCanonical =
    "SELECT a, 1.5 FROM tab ____t1 WHERE id = 31 and b >= 2500";

// The first few names and the number of the others: "a, b and 2 more".
std::string Listed(const SymbolNames& names) {
  if (names.count == 0) return "none";
  const std::string first = fmt::format("{}", fmt::join(names.first, ", "));
  const std::size_t more = names.count - names.first.size();
  return more == 0 ? first : fmt::format("{} and {} more", first, more);
}

// The file of the loaded library `name`; empty if the library is not loaded.
std::string LoadedFile(const std::string& name) {
  const LibraryHandle handle(dlopen(name.c_str(), RTLD_LAZY | RTLD_NOLOAD));
  link_map* map = nullptr;
  return handle && dlinfo(handle.get(), RTLD_DI_LINKMAP, &map) == 0 ? map->l_name : "";
}

// The file in which the dynamic loader would find the library `name`, which `library` at `path`
// needs; "yes" if it is in the loader's own folders, empty if it is missing. The loader stops at
// the first missing library, while this finds all of them.
std::string FindNeeded(const std::string& path, const ElfLibrary& library,
                       const std::string& name) {
  std::istringstream search_path(library.search_path);
  for (std::string folder; std::getline(search_path, folder, ':');) {
    for (const std::string_view origin : {"$ORIGIN", "${ORIGIN}"}) {
      if (!folder.starts_with(origin)) continue;
      folder.replace(0, origin.size(), std::filesystem::path(path).parent_path().string());
    }
    const auto file = std::filesystem::path(folder) / name;
    std::error_code error;
    if (std::filesystem::is_regular_file(file, error)) return file.string();
  }
  return LibraryHandle(dlopen(name.c_str(), RTLD_LAZY)) ? "yes" : "";
}

void TellNeeded(const ElfLibrary& library,
                const std::function<std::string(const std::string&)>& find, const Tell& tell) {
  for (const std::string& name : library.needed) {
    const std::string where = find(name);
    tell({!where.empty(), fmt::format("finds {}: {}", name, where.empty() ? "not found" : where)});
  }
}

// The start of the loaded library that holds `address`; null if none does.
const void* LibraryAt(const void* address) noexcept {
  Dl_info info;
  return address != nullptr && dladdr(address, &info) != 0 ? info.dli_fbase : nullptr;
}

// The reason why the object's dispatch table is not whole; empty if its operations may be called.
// `entry` is the library's entry function.
std::string DispatchTableTrouble(const impl_dao::CProductInterface& product, const void* entry) {
  const auto outside = [library = LibraryAt(entry)](const void* address) {
    return library == nullptr || LibraryAt(address) != library;
  };
  if (outside(&product)) return "the object lies outside the library";
  const void* const* table = nullptr;
  std::memcpy(&table, static_cast<const void*>(&product), sizeof table);
  // The type information comes right before the first slot.
  if (outside(table - 1) || outside(table + kSlots - 1)) return "it lies outside the library";
  if (outside(table[-1])) return "no type information";
  for (std::size_t slot = 0; slot < kSlots; ++slot) {
    if (outside(table[slot])) return fmt::format("slot {} points outside the library", slot + 1);
  }
  return {};
}

Fact CheckTypeName(const impl_dao::CProductInterface& product) {
  const char* const mangled = typeid(product).name();
  const std::unique_ptr<char, decltype(&std::free)> name(
      abi::__cxa_demangle(mangled, nullptr, nullptr, nullptr), &std::free);
  const std::string_view shown = name ? name.get() : mangled;
  return {shown == kProductType, "type: " + std::string(shown)};
}

Fact CheckMapErrorCode(impl_dao::CProductInterface& product) {
  constexpr std::int64_t kGenericError = 0xB000013;
  bool maps = product.MapErrorCode(0) == 0;
  for (const int status :
       {1, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
    maps = maps && product.MapErrorCode(status) == kGenericError;
  }
  return {maps, fmt::format("MapErrorCode: {} 0xB000013 otherwise",
                            maps ? "0 for 0," : "not 0 for 0 and")};
}

Fact CheckNormalizeSql(impl_dao::CProductInterface& product) {
  std::string sql = kSampleStatement;
  const auto reason = CallNormalize(product, sql);
  return {!reason && sql == kSampleCanonical, "NormalizeSQL: " + reason.value_or(sql)};
}

// Makes all checks that need the library loaded, and unloads it. Throws PluginError if the library
// can't be loaded or has no entry function.
void CheckCalls(const std::string& path, const ElfLibrary& library, const Tell& tell) {
  const Plugin plugin(path);
  tell({true, "loads: " + path});
  TellNeeded(library, LoadedFile, tell);

  impl_dao::CProductInterface& product = plugin.Product();
  const bool same = plugin.Entry()() == &product;
  tell({same,
        fmt::format("entry function: {} on two calls", same ? "one pointer" : "two pointers")});
  const auto* const entry = reinterpret_cast<const void*>(&plugin.Entry());
  const std::string trouble = DispatchTableTrouble(product, entry);
  tell({trouble.empty(),
        "dispatch table: " + (trouble.empty() ? "nine slots, all within the library" : trouble)});
  if (!trouble.empty()) return;
  tell(CheckTypeName(product));
  tell(CheckMapErrorCode(product));
  tell(CheckNormalizeSql(product));
}

}  // namespace

std::vector<Fact> CheckFile(const ElfLibrary& library) {
  return {{library.exported.count == 1 && library.exported.first.front() == kEntryFunction,
           "exports the entry function alone: " + Listed(library.exported)},
          {library.unique.count == 0, "has no unique symbols: " + Listed(library.unique)},
          {!library.no_delete,
           library.no_delete ? "allows unloading: DF_1_NODELETE" : "allows unloading: yes"},
          {library.soname == kPluginFile, "soname: " + library.soname.value_or("none")}};
}

void CheckLoaded(const std::string& path, const ElfLibrary& library, const Tell& tell) {
  try {
    CheckCalls(path, library, tell);
    const bool gone = !IsLoaded(path);
    tell({gone, gone ? "unloads: yes" : "unloads: still in the process"});
  } catch (const PluginError& error) {
    tell({false, std::string("loads: ") + error.what()});
    const auto find = [&](const std::string& name) { return FindNeeded(path, library, name); };
    TellNeeded(library, find, tell);
  }
}

}  // namespace tarn::host

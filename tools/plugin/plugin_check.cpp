#include "plugin/plugin_check.h"

#include <cxxabi.h>
#include <dlfcn.h>
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

// The first few names, and how many more there are.
std::string Listed(const SymbolNames& names) {
  if (names.count == 0) return "none";
  std::string text;
  for (const std::string& name : names.first) text += (text.empty() ? "" : ", ") + name;
  const std::size_t more = names.count - names.first.size();
  return more == 0 ? text : text + " and " + std::to_string(more) + " more";
}

// The file of the library that the process knows as `name`; empty where it has none.
std::string LoadedFile(const std::string& name) {
  const LibraryHandle handle(dlopen(name.c_str(), RTLD_LAZY | RTLD_NOLOAD));
  link_map* map = nullptr;
  return handle && dlinfo(handle.get(), RTLD_DI_LINKMAP, &map) == 0 ? map->l_name : "";
}

// Finds the libraries that a library at `path`, which can't be loaded, needs: each looked for where
// the dynamic loader would, so that all missing ones show at once.
class NeededFinder {
 public:
  NeededFinder(const std::string& path, const ElfLibrary& library) {
    std::istringstream search_path(library.search_path);
    for (std::string folder; std::getline(search_path, folder, ':');) {
      for (const std::string_view origin : {"$ORIGIN", "${ORIGIN}"}) {
        if (!folder.starts_with(origin)) continue;
        folder.replace(0, origin.size(), std::filesystem::path(path).parent_path().string());
      }
      folders_.emplace_back(folder);
    }
  }

  std::string Find(const std::string& name) const {
    for (const auto& folder : folders_) {
      std::error_code error;
      const auto file = folder / name;
      if (std::filesystem::is_regular_file(file, error)) return file.string();
    }
    return LibraryHandle(dlopen(name.c_str(), RTLD_LAZY)) ? "yes" : "";
  }

 private:
  std::vector<std::filesystem::path> folders_;
};

void TellNeeded(const ElfLibrary& library,
                const std::function<std::string(const std::string&)>& find, const Tell& tell) {
  for (const std::string& name : library.needed) {
    const std::string where = find(name);
    tell({!where.empty(), "finds " + name, where.empty() ? "not found" : where});
  }
}

// Where a loaded library lies in memory.
class LibraryRange {
 public:
  // `inside` is an address of the library.
  explicit LibraryRange(const void* inside) noexcept : base_(BaseOf(inside)) {}

  bool Has(const void* address) const noexcept {
    return base_ != nullptr && BaseOf(address) == base_;
  }

 private:
  static const void* BaseOf(const void* address) noexcept {
    Dl_info info;
    return address != nullptr && dladdr(address, &info) != 0 ? info.dli_fbase : nullptr;
  }

  const void* base_;
};

// Whether the object's dispatch table is whole, so that its operations may be called.
bool CheckDispatchTable(const impl_dao::CProductInterface& product, const LibraryRange& range,
                        const Tell& tell) {
  std::string trouble;
  const void* const* table = nullptr;
  if (range.Has(&product)) {
    std::memcpy(&table, static_cast<const void*>(&product), sizeof table);
    // The type information comes right before the first slot.
    constexpr std::size_t kEntries = kSlots + 1;
    if (!range.Has(table) || !range.Has(table - 1) || !range.Has(table + kSlots - 1)) {
      trouble = "it lies outside the library";
    }
    for (std::size_t entry = 0; entry < kEntries && trouble.empty(); ++entry) {
      if (range.Has(*(table - 1 + entry))) continue;
      trouble = entry == 0 ? "no type information"
                           : "slot " + std::to_string(entry) + " points outside the library";
    }
  } else {
    trouble = "the object lies outside the library";
  }
  const bool whole = trouble.empty();
  tell({whole, "dispatch table", whole ? "nine slots, all within the library" : trouble});
  return whole;
}

Fact CheckTypeName(const impl_dao::CProductInterface& product) {
  const char* const mangled = typeid(product).name();
  const std::unique_ptr<char, decltype(&std::free)> name(
      abi::__cxa_demangle(mangled, nullptr, nullptr, nullptr), &std::free);
  const std::string_view shown = name ? name.get() : mangled;
  return {shown == kProductType, "type", std::string(shown)};
}

Fact CheckMapErrorCode(impl_dao::CProductInterface& product) {
  constexpr std::int64_t kGenericError = 0xB000013;
  bool maps = product.MapErrorCode(0) == 0;
  for (const int status :
       {1, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
    maps = maps && product.MapErrorCode(status) == kGenericError;
  }
  return {maps, "MapErrorCode",
          maps ? "0 for 0, 0xB000013 otherwise" : "not 0 for 0 and 0xB000013 otherwise"};
}

Fact CheckNormalizeSql(impl_dao::CProductInterface& product) {
  std::string sql = kSampleStatement;
  const auto reason = CallNormalize(product, sql);
  return {!reason && sql == kSampleCanonical, "NormalizeSQL", reason.value_or(sql)};
}

// All that asks the library itself, which is unloaded again in any case. Throws PluginError when it
// can't be loaded or has no entry function.
void CheckCalls(const std::string& path, const ElfLibrary& library, const Tell& tell) {
  const Plugin plugin(path);
  tell({true, "loads", path});
  TellNeeded(library, LoadedFile, tell);

  impl_dao::CProductInterface& product = plugin.Product();
  const bool same = plugin.Entry()() == &product;
  tell({same, "entry function", same ? "one pointer on two calls" : "two pointers on two calls"});
  const LibraryRange range(reinterpret_cast<const void*>(&plugin.Entry()));
  if (!CheckDispatchTable(product, range, tell)) return;
  tell(CheckTypeName(product));
  tell(CheckMapErrorCode(product));
  tell(CheckNormalizeSql(product));
}

}  // namespace

std::vector<Fact> CheckFile(const ElfLibrary& library) {
  return {{library.exported.count == 1 && library.exported.first.front() == kEntryFunction,
           "exports the entry function alone", Listed(library.exported)},
          {library.unique.count == 0, "has no unique symbols", Listed(library.unique)},
          {!library.no_delete, "allows unloading", library.no_delete ? "DF_1_NODELETE" : "yes"},
          {library.soname == kPluginFile, "soname", library.soname.value_or("none")}};
}

void CheckLoaded(const std::string& path, const ElfLibrary& library, const Tell& tell) {
  try {
    CheckCalls(path, library, tell);
    const bool still_there = IsLoaded(path);
    tell({!still_there, "unloads", still_there ? "still in the process" : "yes"});
  } catch (const PluginError& error) {
    tell({false, "loads", error.what()});
    const NeededFinder finder(path, library);
    TellNeeded(
        library, [&finder](const std::string& name) { return finder.Find(name); }, tell);
  }
}

}  // namespace tarn::host

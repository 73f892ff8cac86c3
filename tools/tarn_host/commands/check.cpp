#include "tarn_host/commands.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <typeinfo>

#include "tarn_host/elf_library.h"
#include "tarn_host/errors.h"
#include "tarn_host/exit_code.h"
#include "tarn_host/normalize_call.h"
#include "tarn_host/output.h"
#include "tarn_host/plugin.h"
#include "tarn_host/plugin_option.h"

namespace tarn::host {
namespace {

constexpr std::size_t kSlots = 9;
constexpr std::string_view kProductType = "CProductInterface_Tarn";
constexpr const char* kSampleStatement =
    "select t3.a, 1.50 from tab t3 where (t3.id = 0x1F and t3.b >= 2.5E3)";
constexpr std::string_view kSampleCanonical =
    "SELECT a, 1.5 FROM tab ____t1 WHERE id = 31 and b >= 2500";

struct CloseLibrary {
  void operator()(void* handle) const noexcept { dlclose(handle); }
};
using LibraryHandle = std::unique_ptr<void, CloseLibrary>;

// Prints one line a fact.
class FactSheet {
 public:
  explicit FactSheet(Output& output) : output_(output) {}

  void Add(bool holds, std::string_view fact, std::string_view detail) {
    const bool coloured = output_.Coloured();
    if (coloured) output_.Write(holds ? "\x1B[32m" : "\x1B[1;31m");
    output_.Write(holds ? "pass" : "FAIL");
    if (coloured) output_.Write("\x1B[0m");
    output_.Write("  ");
    output_.Write(fact);
    output_.Write(": ");
    output_.Write(OneLine(detail));
    output_.Write("\n");
    // What the library does next may end the process.
    output_.Flush();
    all_hold_ = all_hold_ && holds;
  }

  bool AllHold() const noexcept { return all_hold_; }

 private:
  Output& output_;
  bool all_hold_ = true;
};

// The first few names, and how many more there are.
class NameList {
 public:
  void Add(std::string_view name) {
    ++count_;
    if (count_ > kShown) return;
    if (!text_.empty()) text_ += ", ";
    text_ += name;
  }

  std::size_t Count() const noexcept { return count_; }

  std::string Text() const {
    if (count_ == 0) return "none";
    return count_ <= kShown ? text_ : text_ + " and " + std::to_string(count_ - kShown) + " more";
  }

 private:
  static constexpr std::size_t kShown = 5;

  std::size_t count_ = 0;
  std::string text_;
};

void CheckFile(const ElfLibrary& library, FactSheet& facts) {
  NameList exported;
  NameList unique;
  for (const ElfLibrary::Symbol& symbol : library.exported) {
    exported.Add(symbol.name);
    if (symbol.binding == STB_GNU_UNIQUE) unique.Add(symbol.name);
  }
  facts.Add(exported.Count() == 1 && library.exported.front().name == kEntryFunction,
            "exports the entry function alone", exported.Text());
  facts.Add(unique.Count() == 0, "has no unique symbols", unique.Text());
  facts.Add(!library.no_delete, "allows unloading", library.no_delete ? "DF_1_NODELETE" : "yes");
  facts.Add(library.soname == kPluginFile, "soname", library.soname.value_or("none"));
}

// `loaded` tells that the library, and so all that it needs, is in the process.
void CheckNeeded(const ElfLibrary& library, bool loaded, FactSheet& facts) {
  for (const std::string& name : library.needed) {
    const LibraryHandle handle(dlopen(name.c_str(), RTLD_LAZY | (loaded ? RTLD_NOLOAD : 0)));
    std::string where = "not found";
    link_map* map = nullptr;
    if (!handle) {
      if (const char* reason = dlerror()) where = reason;
    } else if (dlinfo(handle.get(), RTLD_DI_LINKMAP, &map) == 0) {
      where = map->l_name;
    }
    facts.Add(handle != nullptr, "finds " + name, where);
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
                        FactSheet& facts) {
  const char* const fact = "dispatch table";
  // The type information stands right before the first slot.
  constexpr std::size_t kEntries = kSlots + 1;
  const void* const* table = nullptr;
  if (!range.Has(&product)) {
    facts.Add(false, fact, "the object lies outside the library");
    return false;
  }
  std::memcpy(&table, static_cast<const void*>(&product), sizeof table);
  if (!range.Has(table) || !range.Has(table - 1) || !range.Has(table + kSlots - 1)) {
    facts.Add(false, fact, "it lies outside the library");
    return false;
  }
  for (std::size_t entry = 0; entry < kEntries; ++entry) {
    if (!range.Has(*(table - 1 + entry))) {
      facts.Add(false, fact,
                entry == 0 ? "no type information"
                           : "slot " + std::to_string(entry) + " points outside the library");
      return false;
    }
  }
  facts.Add(true, fact, "nine slots, all within the library");
  return true;
}

void CheckTypeName(const impl_dao::CProductInterface& product, FactSheet& facts) {
  const char* const mangled = typeid(product).name();
  const std::unique_ptr<char, decltype(&std::free)> name(
      abi::__cxa_demangle(mangled, nullptr, nullptr, nullptr), &std::free);
  const std::string_view shown = name ? name.get() : mangled;
  facts.Add(shown == kProductType, "type", shown);
}

void CheckOperations(impl_dao::CProductInterface& product, FactSheet& facts) {
  constexpr std::int64_t kGenericError = 0xB000013;
  bool maps = product.MapErrorCode(0) == 0;
  for (const int status :
       {1, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
    maps = maps && product.MapErrorCode(status) == kGenericError;
  }
  facts.Add(maps, "MapErrorCode",
            maps ? "0 for 0, 0xB000013 otherwise" : "not 0 for 0 and 0xB000013 otherwise");

  std::string sql = kSampleStatement;
  const auto reason = CallNormalize(product, sql);
  facts.Add(!reason && sql == kSampleCanonical, "NormalizeSQL", reason ? *reason : sql);
}

// Everything that asks the library itself. Throws PluginError when it can't be loaded or has no
// entry function; it is unloaded again in any case.
void CheckLoaded(const std::string& path, const ElfLibrary& library, FactSheet& facts) {
  const Plugin plugin(path);
  facts.Add(true, "loads", path);
  CheckNeeded(library, true, facts);

  void* const symbol = dlsym(plugin.Handle(), kEntryFunction);
  const bool same = reinterpret_cast<EntryFunction*>(symbol)() == &plugin.Product();
  facts.Add(same, "entry function",
            same ? "one pointer on two calls" : "two pointers on two calls");
  if (!CheckDispatchTable(plugin.Product(), LibraryRange(symbol), facts)) return;
  CheckTypeName(plugin.Product(), facts);
  CheckOperations(plugin.Product(), facts);
}

int Check(const std::string& library) {
  const std::string path = ChosenPlugin(library);
  const ElfLibrary elf = ReadElfLibrary(path);
  Output output;
  FactSheet facts(output);
  CheckFile(elf, facts);
  try {
    CheckLoaded(path, elf, facts);
    const LibraryHandle still_there(dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD));
    facts.Add(!still_there, "unloads", still_there ? "still in the process" : "yes");
  } catch (const PluginError& error) {
    facts.Add(false, "loads", error.what());
    CheckNeeded(elf, false, facts);
  }
  output.Flush();
  return facts.AllHold() ? kExitSuccess : kExitFailed;
}

}  // namespace

void AddCheckCommand(CLI::App& app, int& exit_code) {
  const auto library = std::make_shared<std::string>();
  CLI::App* command =
      app.add_subcommand("check", "Tell whether a library is fit to be loaded into a host");
  command->add_option("LIBRARY", *library, "The library's file; by default the one beside the tool")
      ->type_name("");
  command->footer(
      "Prints one line a fact, \"pass\" or \"FAIL\"; the exit code is 1 when any fails. The "
      "library\n"
      "is loaded and called: don't check one that you don't trust.\n\n"
      "Examples:\n"
      "  tarn_host check\n"
      "  tarn_host check ./libtarn_interface_for_vesta.so");
  command->callback([library, &exit_code] { exit_code = Check(*library); });
}

}  // namespace tarn::host

#include "tarn_host/commands.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <typeinfo>
#include <vector>

#include "plugin/elf_library.h"
#include "plugin/normalize_call.h"
#include "plugin/plugin.h"
#include "tarn_host/errors.h"
#include "tarn_host/exit_code.h"
#include "tarn_host/output.h"
#include "tarn_host/plugin_option.h"

namespace tarn::host {
namespace {

constexpr std::size_t kSlots = 9;
constexpr std::string_view kProductType = "CProductInterface_Tarn";
constexpr const char* kSampleStatement =
    "select t3.a, 1.50 from tab t3 where (t3.id = 0x1F and t3.b >= 2.5E3)";
constexpr std::string_view kSampleCanonical =
    "SELECT a, 1.5 FROM tab ____t1 WHERE id = 31 and b >= 2500";

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
std::string Listed(const SymbolNames& names) {
  if (names.count == 0) return "none";
  std::string text;
  for (const std::string& name : names.first) text += (text.empty() ? "" : ", ") + name;
  const std::size_t more = names.count - names.first.size();
  return more == 0 ? text : text + " and " + std::to_string(more) + " more";
}

void CheckFile(const ElfLibrary& library, FactSheet& facts) {
  facts.Add(library.exported.count == 1 && library.exported.first.front() == kEntryFunction,
            "exports the entry function alone", Listed(library.exported));
  facts.Add(library.unique.count == 0, "has no unique symbols", Listed(library.unique));
  facts.Add(!library.no_delete, "allows unloading", library.no_delete ? "DF_1_NODELETE" : "yes");
  facts.Add(library.soname == kPluginFile, "soname", library.soname.value_or("none"));
}

// The loaded library that `name` stands for, where the process has one.
LibraryHandle LoadedLibrary(const std::string& name) {
  return LibraryHandle(dlopen(name.c_str(), RTLD_LAZY | RTLD_NOLOAD));
}

// What the loaded library at `path` needs, found as the dynamic loader did.
void CheckNeeded(const ElfLibrary& library, FactSheet& facts) {
  for (const std::string& name : library.needed) {
    const LibraryHandle handle = LoadedLibrary(name);
    link_map* map = nullptr;
    const bool found = handle && dlinfo(handle.get(), RTLD_DI_LINKMAP, &map) == 0;
    facts.Add(found, "finds " + name, found ? map->l_name : "not found");
  }
}

// What the library at `path`, which can't be loaded, needs: each looked for where the dynamic
// loader would, so that all that is missing shows at once.
void CheckNeededOfUnloadable(const std::string& path, const ElfLibrary& library, FactSheet& facts) {
  std::vector<std::filesystem::path> folders;
  std::istringstream search_path(library.search_path);
  for (std::string folder; std::getline(search_path, folder, ':');) {
    for (const std::string_view origin : {"$ORIGIN", "${ORIGIN}"}) {
      if (!folder.starts_with(origin)) continue;
      folder.replace(0, origin.size(), std::filesystem::path(path).parent_path().string());
    }
    folders.emplace_back(folder);
  }
  for (const std::string& name : library.needed) {
    std::string where;
    for (const auto& folder : folders) {
      std::error_code error;
      if (where.empty() && std::filesystem::is_regular_file(folder / name, error)) {
        where = (folder / name).string();
      }
    }
    if (where.empty() && LibraryHandle(dlopen(name.c_str(), RTLD_LAZY))) where = "yes";
    facts.Add(!where.empty(), "finds " + name, where.empty() ? "not found" : where);
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
  CheckNeeded(library, facts);

  const bool same = plugin.Entry()() == &plugin.Product();
  facts.Add(same, "entry function",
            same ? "one pointer on two calls" : "two pointers on two calls");
  const LibraryRange range(reinterpret_cast<const void*>(&plugin.Entry()));
  if (!CheckDispatchTable(plugin.Product(), range, facts)) return;
  CheckTypeName(plugin.Product(), facts);
  CheckOperations(plugin.Product(), facts);
}

void CheckInThisProcess(const std::string& path, const ElfLibrary& library, FactSheet& facts) {
  try {
    CheckLoaded(path, library, facts);
    const bool still_there = IsLoaded(path);
    facts.Add(!still_there, "unloads", still_there ? "still in the process" : "yes");
  } catch (const PluginError& error) {
    facts.Add(false, "loads", error.what());
    CheckNeededOfUnloadable(path, library, facts);
  }
}

std::string HowItEnded(int status) {
  if (WIFEXITED(status)) return "it ended with exit code " + std::to_string(WEXITSTATUS(status));
  return std::string("it died: ") + strsignal(WTERMSIG(status));
}

// As a shell reports it.
constexpr unsigned char kExitReaderGone = 128 + SIGPIPE;

// Goes on with `facts` in a child process, since a library may well end the process that loads it.
// Nothing may be buffered in `facts`. Returns the exit code.
int CheckInAChild(const std::string& path, const ElfLibrary& library, FactSheet& facts) {
  // The child's verdict is a byte here, not its exit code, which the library could choose.
  int verdict[2];
  if (pipe2(verdict, O_CLOEXEC | O_NONBLOCK) != 0) throw ToolError(SystemReason("check", errno));
  const pid_t child = fork();
  if (child < 0) throw ToolError(SystemReason("check", errno));
  if (child == 0) {
    unsigned char exit_code = kExitTrouble;
    try {
      CheckInThisProcess(path, library, facts);
      exit_code = facts.AllHold() ? kExitSuccess : kExitFailed;
    } catch (const ReaderGone&) {
      exit_code = kExitReaderGone;
    } catch (const std::exception& error) {
      ReportError(error.what());
    }
    _exit(write(verdict[1], &exit_code, 1) == 1 ? exit_code : kExitTrouble);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  unsigned char exit_code = 0;
  const bool has_verdict = read(verdict[0], &exit_code, 1) == 1;
  close(verdict[0]);
  close(verdict[1]);
  if (has_verdict) return exit_code;
  facts.Add(false, "leaves its process running", HowItEnded(status));
  return kExitFailed;
}

int Check(const std::string& name) {
  const std::string path = ChosenPlugin(name);
  const ElfLibrary library = ReadElfLibrary(path);
  Output output;
  FactSheet facts(output);
  CheckFile(library, facts);
  return CheckInAChild(path, library, facts);
}

}  // namespace

void AddCheckCommand(CommandLine& line) {
  const auto library = std::make_shared<std::string>();
  Command command = line.Add("check", "Tell whether a library is fit to be loaded into a host",
                             [library] { return Check(*library); });
  command.NameArgument("LIBRARY", *library,
                       "The library's file; by default the one beside the tool",
                       Presence::kOptional);
  command.Footer(
      "Prints one line a fact, \"pass\" or \"FAIL\"; the exit code is 1 when any fails. The "
      "library\n"
      "is loaded and called: don't check one that you don't trust.\n\n"
      "Examples:\n"
      "  tarn_host check\n"
      "  tarn_host check ./libtarn_interface_for_vesta.so");
}

}  // namespace tarn::host

#include "tarn_host/commands.h"

#include <dlfcn.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "dbconfig/wiped_string.h"
#include "plugin/elf_library.h"
#include "plugin/platform_module.h"
#include "plugin/plugin.h"
#include "standin/warning.h"
#include "tarn_host/errors.h"
#include "tarn_host/json.h"
#include "tarn_host/output.h"

namespace tarn::host {
namespace {

// Its length does not depend on the password's.
constexpr const char* kMask = "********";

struct Answers {
  std::string type;
  std::string user;
  std::string address;
  std::map<std::string, std::string> properties;
};

// The library that holds the plug-in's `function`. If there is no such function, the libraries that
// the plug-in needs: "liba.so or libb.so".
std::string PlatformOf(const void* function, const std::string& plugin_path) {
  Dl_info theirs;
  if (dladdr(function, &theirs) != 0) return theirs.dli_fname;
  const std::vector<std::string> needed = ReadElfLibrary(plugin_path).needed;
  return needed.empty() ? "no library" : fmt::format("{}", fmt::join(needed, " or "));
}

// The platform module. Throws ToolError if it uses another platform library than the plug-in, since
// it would misread the plug-in's values.
std::pair<LibraryHandle, const PlatformModule*> LoadPlatformModule(const Plugin& plugin,
                                                                   const std::string& plugin_path) {
  const std::string path = FileOfTheTool(kPlatformModuleFile);
  LibraryHandle handle(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL));
  const auto* const module = static_cast<const PlatformModule*>(
      handle ? dlsym(handle.get(), kPlatformModuleSymbol) : nullptr);
  if (module == nullptr) {
    throw ToolError(fmt::format("cannot load the tool's module: {}", dlerror()));
  }
  Dl_info ours;
  if (dladdr(module->platform_function, &ours) == 0) throw ToolError(path + ": no platform");
  const void* const theirs = dlsym(plugin.Handle(), ours.dli_sname);
  if (theirs != module->platform_function) {
    throw ToolError(
        fmt::format("config: {} is built on {}, and this tool on {}: the two can't exchange values",
                    plugin_path, PlatformOf(theirs, plugin_path), ours.dli_fname));
  }
  return {std::move(handle), module};
}

// The warnings of the stand-in platform during this object's life. Another platform gives none.
class PlatformWarnings {
 public:
  explicit PlatformWarnings(const Plugin& plugin)
      : observe_(reinterpret_cast<standin::ObserveWarnings*>(
            dlsym(plugin.Handle(), standin::kObserveWarnings))) {
    if (observe_ != nullptr) observe_(&PlatformWarnings::Add, this);
  }
  PlatformWarnings(const PlatformWarnings&) = delete;
  PlatformWarnings& operator=(const PlatformWarnings&) = delete;
  ~PlatformWarnings() {
    if (observe_ != nullptr) observe_(nullptr, nullptr);
  }

  // The first warning that is the cause of a missing answer; empty if there is none. The plug-in
  // tries a password with two algorithms. So a warning that it was enciphered with another
  // algorithm is a cause only if it came for both.
  std::string FirstCause() const {
    const auto of_other = [](const Warning& it) {
      return it.code == standin::Code::kOtherAlgorithm;
    };
    const bool of_neither = std::count_if(warnings_.begin(), warnings_.end(), of_other) > 1;
    const auto cause = std::find_if(warnings_.begin(), warnings_.end(),
                                    [&](const Warning& it) { return of_neither || !of_other(it); });
    return cause == warnings_.end() ? "" : cause->message;
  }

 private:
  struct Warning {
    standin::Code code;
    std::string message;
  };

  static void Add(void* context, standin::Code code, const char* message) {
    static_cast<PlatformWarnings*>(context)->warnings_.push_back({code, message});
  }

  standin::ObserveWarnings* observe_;
  std::vector<Warning> warnings_;
};

// The reason why the application configuration that the environment names can't be read; empty if
// it can be read, or if the environment names none.
std::string AppConfTrouble() {
  const char* const path = std::getenv("APP_CONF_FILE");
  if (path == nullptr || access(path, R_OK) == 0) return {};
  return SystemReason(std::string("APP_CONF_FILE: ") + path, errno);
}

void PrintTable(const Answers& answers, const std::string& password, Output& output) {
  std::vector<std::pair<std::string, std::string>> rows{{"type", answers.type},
                                                        {"user", answers.user},
                                                        {"password", password},
                                                        {"address", answers.address}};
  rows.insert(rows.end(), answers.properties.begin(), answers.properties.end());
  std::size_t width = 0;
  for (const auto& row : rows) width = std::max(width, row.first.size());
  for (const auto& [label, value] : rows) {
    // A line without a value must not end in blanks.
    output.Write(
        fmt::format("{:<{}}{}\n", OneLine(label), value.empty() ? 0 : width + 2, OneLine(value)));
  }
}

void PrintJson(const std::string& database, const Answers& answers, const std::string* password,
               Output& output) {
  // The ordered type keeps the members in this order.
  nlohmann::ordered_json document{{"database", database},
                                  {"type", answers.type},
                                  {"user", answers.user},
                                  {"password", nullptr},
                                  {"password_masked", password == nullptr},
                                  {"address", answers.address},
                                  {"properties", answers.properties}};
  if (password != nullptr) document["password"] = *password;
  output.Write(JsonText(document) + '\n');
}

}  // namespace

int Config(const ConfigOptions& options) {
  const std::string path = ChosenPlugin(options.plugin);
  const Plugin plugin(path);
  const auto [handle, platform] = LoadPlatformModule(plugin, path);
  // A person who sees the answers needs no log, and gets the first cause if there are none.
  const char* const level = std::getenv("TARN_LOG_LEVEL");
  if (level == nullptr || *level == '\0') setenv("TARN_LOG_LEVEL", "off", 1);
  impl_dao::CProductInterface& product = plugin.Product();
  const PlatformWarnings warnings(plugin);
  Answers answers;
  dbconfig::WipedString password;
  std::string cause;
  try {
    product.GetDBType(answers.type, options.database);
    product.GetDBUserAndPassword(answers.user, password.Text(), options.database);
    product.GetDBConnectAddress(answers.address, options.database);
    platform->read_properties(product, answers.properties);
  } catch (const std::exception& error) {
    cause = error.what();
  }
  if (const std::string first = warnings.FirstCause(); !first.empty()) cause = first;
  if (cause.empty()) cause = AppConfTrouble();
  if (!cause.empty()) {
    ReportError("config: " + options.database + ": " + cause);
    return kExitFailed;
  }
  // An empty password is shown, since it is no secret and may be the result of a failed
  // deciphering.
  const bool masked = !options.show_password && !password.Text().empty();
  Output output;
  if (options.json) {
    PrintJson(options.database, answers, masked ? nullptr : &password.Text(), output);
  } else {
    PrintTable(answers, masked ? kMask : password.Text(), output);
  }
  output.Flush();
  return kExitSuccess;
}

}  // namespace tarn::host

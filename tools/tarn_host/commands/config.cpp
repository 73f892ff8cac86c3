#include "tarn_host/commands.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <istream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dbconfig/wiped_string.h"
#include "plugin/elf_library.h"
#include "plugin/platform_module.h"
#include "plugin/plugin.h"
#include "standin/password_cipher.h"
#include "tarn_host/errors.h"
#include "tarn_host/exit_code.h"
#include "tarn_host/output.h"
#include "tarn_host/plugin_option.h"

namespace tarn::host {
namespace {

// Says nothing of the password's length.
constexpr const char* kMask = "********";

struct ConfigOptions {
  std::string database;
  std::string plugin;
  bool show_password = false;
  bool json = false;
};

struct Answers {
  std::string type;
  std::string user;
  std::string address;
  std::map<std::string, std::string> properties;
};

// The platform module, running on the same platform as the plug-in.
class SharedPlatform {
 public:
  // Throws ToolError when the plug-in runs on a platform other than the tool's, whose values would
  // be misread.
  SharedPlatform(const Plugin& plugin, const std::string& plugin_path) {
    const std::string path = FileOfTheTool(kPlatformModuleFile);
    handle_.reset(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL));
    const void* const symbol =
        handle_ ? dlsym(handle_.get(), kPlatformModuleSymbol) : static_cast<void*>(nullptr);
    if (symbol == nullptr) throw ToolError("cannot load the tool's module: " + Reason());
    module_ = static_cast<const PlatformModule*>(symbol);

    Dl_info ours;
    if (dladdr(module_->platform_function, &ours) == 0) throw ToolError(path + ": no platform");
    const void* const theirs = dlsym(plugin.Handle(), ours.dli_sname);
    if (theirs == module_->platform_function) return;
    throw ToolError("config: " + plugin_path + " is built on " + PlatformOf(theirs, plugin_path) +
                    ", and this tool on " + ours.dli_fname + ": the two can't exchange values");
  }

  void ReadProperties(impl_dao::CProductInterface& product,
                      std::map<std::string, std::string>& texts) const {
    module_->read_properties(product, texts);
  }

 private:
  static std::string Reason() {
    const char* const reason = dlerror();
    return reason == nullptr ? "unknown reason" : reason;
  }

  // The library that holds the plug-in's `function`, or what to look for it among.
  static std::string PlatformOf(const void* function, const std::string& plugin_path) {
    Dl_info theirs;
    if (function != nullptr && dladdr(function, &theirs) != 0) return theirs.dli_fname;
    std::string names;
    for (const std::string& name : ReadElfLibrary(plugin_path).needed) {
      names += (names.empty() ? "" : " or ") + name;
    }
    return names.empty() ? "no library" : names;
  }

  LibraryHandle handle_;
  const PlatformModule* module_ = nullptr;
};

// The product log of some calls, kept from standard error, where the stand-in platform writes it:
//
//   LEVEL CODE FILE:LINE FUNCTION: MESSAGE
//
// A person who sees the answers needs no record, and one who sees none needs the first cause.
class KeptLog {
 public:
  // Keeps warnings and errors even where TARN_LOG_LEVEL asks for less. Throws ToolError.
  KeptLog()
      : records_(memfd_create("product log", MFD_CLOEXEC)),
        standard_error_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0)) {
    if (const char* level = std::getenv(kLevelVariable)) asked_ = level;
    if (asked_.empty() || asked_ == "off" || asked_ == "error") {
      setenv(kLevelVariable, "warn", 1);
    }
    if (records_ < 0 || standard_error_ < 0 || dup2(records_, STDERR_FILENO) < 0) {
      const int error = errno;
      Close();
      throw ToolError(SystemReason("product log", error));
    }
  }
  KeptLog(const KeptLog&) = delete;
  KeptLog& operator=(const KeptLog&) = delete;
  ~KeptLog() {
    dup2(standard_error_, STDERR_FILENO);
    Close();
  }

  // Passes on to standard error what TARN_LOG_LEVEL asked for. Returns the message of the first
  // record in which the platform, not the plug-in, warns of something. A password is tried with two
  // algorithms: where it has been `deciphered`, the cipher's warning is of the one that failed, and
  // that it is for the other algorithm is no cause where that one fails for another reason.
  std::string FirstCause(bool deciphered) const {
    constexpr std::string_view kPluginSource = "getproductinterface.cpp:";
    constexpr std::string_view kLogSource = "log_process.cpp:";
    constexpr std::string_view kCipherSource = "quill_aes_cipher.cpp:";
    const std::string other_algorithm =
        std::to_string(static_cast<unsigned int>(standin::Code::kOtherAlgorithm));
    std::string cause;
    std::string cause_if_no_other;
    bool is_new = false;
    std::istringstream records(Records());
    for (std::string record; std::getline(records, record);) {
      std::istringstream fields(record);
      std::string level;
      std::string code;
      std::string source;
      std::string function;
      std::string message;
      fields >> level >> code >> source >> function >> std::ws;
      std::getline(fields, message);
      const bool of_no_account = source.starts_with(kPluginSource) ||
                                 source.starts_with(kLogSource) ||
                                 (deciphered && source.starts_with(kCipherSource));
      // The plug-in logs the cipher's code after the cipher's own record.
      if (is_new && source.starts_with(kPluginSource) && code == other_algorithm) {
        cause_if_no_other = std::exchange(cause, {});
      }
      is_new = level != "DEBUG" && !of_no_account && cause.empty();
      if (is_new) cause = message;
      if (asked_.empty() || asked_ == "off" || (asked_ == "error" && level != "ERROR")) continue;
      Output log(standard_error_, "standard error");
      log.Write(record + '\n');
    }
    return cause.empty() ? cause_if_no_other : cause;
  }

 private:
  static constexpr const char* kLevelVariable = "TARN_LOG_LEVEL";

  std::string Records() const {
    const off_t size = lseek(records_, 0, SEEK_END);
    std::string records(static_cast<std::size_t>(std::max<off_t>(size, 0)), '\0');
    const ssize_t got = pread(records_, records.data(), records.size(), 0);
    records.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return records;
  }

  void Close() const noexcept {
    close(records_);
    close(standard_error_);
  }

  int records_;
  int standard_error_;
  std::string asked_;
};

// Why the plug-in can't read the application configuration that the environment names; empty if it
// can, or if none is named.
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
  for (const auto& [name, value] : answers.properties) rows.emplace_back(name, value);

  constexpr std::size_t kGap = 2;
  std::size_t width = 0;
  for (const auto& row : rows) width = std::max(width, row.first.size() + kGap);
  for (auto& [label, value] : rows) {
    // No blanks at a line's end where there is no value.
    if (!value.empty()) label.resize(width, ' ');
    output.Write(label + OneLine(value) + '\n');
  }
}

void PrintJson(const std::string& database, const Answers& answers, const std::string* password,
               Output& output) {
  // Keeps the order in which they were asked for.
  nlohmann::ordered_json document{{"database", database},
                                  {"type", answers.type},
                                  {"user", answers.user},
                                  {"password", nullptr},
                                  {"password_masked", password == nullptr},
                                  {"address", answers.address},
                                  {"properties", nlohmann::ordered_json::object()}};
  if (password != nullptr) document["password"] = *password;
  for (const auto& [name, value] : answers.properties) document["properties"][name] = value;
  constexpr int kIndent = 2;
  // A configuration may hold bytes that are not UTF-8; JSON can't, so they become U+FFFD.
  output.Write(document.dump(kIndent, ' ', false, nlohmann::json::error_handler_t::replace) + '\n');
}

int Config(const ConfigOptions& options) {
  const std::string path = ChosenPlugin(options.plugin);
  const Plugin plugin(path);
  const SharedPlatform platform(plugin, path);
  impl_dao::CProductInterface& product = plugin.Product();
  Answers answers;
  dbconfig::WipedString password;
  std::string cause;
  {
    const KeptLog log;
    std::string thrown;
    try {
      product.GetDBType(answers.type, options.database);
      product.GetDBUserAndPassword(answers.user, password.Text(), options.database);
      product.GetDBConnectAddress(answers.address, options.database);
      platform.ReadProperties(product, answers.properties);
    } catch (const std::exception& error) {
      thrown = error.what();
    }
    cause = log.FirstCause(!password.Text().empty());
    if (cause.empty()) cause = thrown;
  }
  if (cause.empty()) cause = AppConfTrouble();
  if (!cause.empty()) {
    ReportError("config: " + options.database + ": " + cause);
    return kExitFailed;
  }
  // An empty password shows as such: no secret, but perhaps what a failed deciphering has left.
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

}  // namespace

void AddConfigCommand(CommandLine& line) {
  const auto options = std::make_shared<ConfigOptions>();
  Command command = line.Add("config", "Print what the plug-in answers for a database",
                             [options] { return Config(*options); });
  command.NameArgument("DBNAME", options->database, "Name of the database in the configuration",
                       Presence::kRequired);
  command.Flag("--show-password", options->show_password,
               "Print the deciphered password instead of a mask");
  command.Flag("--json", options->json, "Print a JSON object instead of a table");
  AddPluginOption(command, options->plugin);
  command.Footer(
      "Prints the engine type, the login account, the address and the connection properties, or "
      "the\n"
      "first reason why they can't be had. Without --show-password the password is ********, in\n"
      "JSON null with \"password_masked\": true.\n\n"
      "The stand-in platform reads:\n"
      "  TARN_SYS_CONF     JSON file of the databases\n"
      "  TARN_KEY_FILE     key file of the stored passwords\n"
      "  TARN_PROC_ID, TARN_PROC_HANDLE\n"
      "                    identity and number of the process\n"
      "  TARN_LOG_LEVEL    off (here the default), error, warn or debug\n"
      "The plug-in itself reads:\n"
      "  APP_CONF_FILE     application configuration, for the SSL mode\n\n"
      "Examples:\n"
      "  tarn_host config orders\n"
      "  tarn_host config orders --json --show-password");
}

}  // namespace tarn::host

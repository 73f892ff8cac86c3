#include "tarn_host/commands.h"

#include <string.h>

#include <algorithm>
#include <exception>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "platform/c_value.h"
#include "tarn_host/errors.h"
#include "tarn_host/exit_code.h"
#include "tarn_host/output.h"
#include "tarn_host/plugin.h"
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

struct Password {
  std::string text;

  Password() = default;
  Password(const Password&) = delete;
  Password& operator=(const Password&) = delete;
  ~Password() { explicit_bzero(text.data(), text.size()); }
};

struct Answers {
  std::string type;
  std::string user;
  std::string address;
  std::map<std::string, refl::CValue> properties;
};

void PrintTable(const Answers& answers, const std::string& password, Output& output) {
  std::vector<std::pair<std::string, std::string>> rows{{"type", answers.type},
                                                        {"user", answers.user},
                                                        {"password", password},
                                                        {"address", answers.address}};
  for (const auto& [name, value] : answers.properties) rows.emplace_back(name, value.ToString());

  constexpr std::size_t kGap = 2;
  std::size_t width = 0;
  for (const auto& row : rows) width = std::max(width, row.first.size() + kGap);
  for (auto& [label, value] : rows) {
    // No blanks at a line's end where there is no value.
    if (!value.empty()) label.resize(width, ' ');
    output.Write(label + OneLine(value) + '\n');
  }
}

void PrintJson(const std::string& database, const Answers& answers, const std::string& password,
               Output& output) {
  // Keeps the order in which they were asked for.
  nlohmann::ordered_json document{
      {"database", database},       {"type", answers.type},
      {"user", answers.user},       {"password", password},
      {"address", answers.address}, {"properties", nlohmann::ordered_json::object()}};
  for (const auto& [name, value] : answers.properties) {
    document["properties"][name] = value.ToString();
  }
  constexpr int kIndent = 2;
  // A configuration may hold bytes that are not UTF-8; JSON can't, so they become U+FFFD.
  output.Write(document.dump(kIndent, ' ', false, nlohmann::json::error_handler_t::replace) + '\n');
}

int Config(const ConfigOptions& options) {
  const Plugin plugin(ChosenPlugin(options.plugin));
  impl_dao::CProductInterface& product = plugin.Product();
  Answers answers;
  Password password;
  try {
    product.GetDBType(answers.type, options.database);
    product.GetDBUserAndPassword(answers.user, password.text, options.database);
    product.GetDBConnectAddress(answers.address, options.database);
    product.GetDBConnectProperties(answers.properties);
  } catch (const std::exception& error) {
    ReportError("config: " + options.database + ": " + error.what());
    return kExitFailed;
  }
  // An empty password shows as such: it is what a failed deciphering leaves.
  const std::string shown = options.show_password || password.text.empty() ? password.text : kMask;
  Output output;
  if (options.json) {
    PrintJson(options.database, answers, shown, output);
  } else {
    PrintTable(answers, shown, output);
  }
  output.Flush();
  return kExitSuccess;
}

}  // namespace

void AddConfigCommand(CLI::App& app, int& exit_code) {
  const auto options = std::make_shared<ConfigOptions>();
  CLI::App* command = app.add_subcommand("config", "Print what the plug-in answers for a database");
  command->add_option("DBNAME", options->database, "Name of the database in the configuration")
      ->required()
      ->type_name("");
  command->add_flag("--show-password", options->show_password,
                    "Print the deciphered password instead of a mask");
  command->add_flag("--json", options->json, "Print a JSON object instead of a table");
  AddPluginOption(*command, options->plugin);
  command->footer(
      "Prints the engine type, the login account, the address and the connection properties. What\n"
      "is not configured is empty; the product log, on standard error, says why.\n\n"
      "The stand-in platform reads:\n"
      "  TARN_SYS_CONF     JSON file of the databases\n"
      "  TARN_KEY_FILE     key file of the stored passwords\n"
      "  TARN_PROC_ID, TARN_PROC_HANDLE\n"
      "                    identity and number of the process\n"
      "  TARN_LOG_LEVEL    off, error, warn (the default) or debug\n"
      "The plug-in itself reads:\n"
      "  APP_CONF_FILE     application configuration, for the SSL mode\n\n"
      "Examples:\n"
      "  tarn_host config orders\n"
      "  tarn_host config orders --json --show-password");
  command->callback([options, &exit_code] { exit_code = Config(*options); });
}

}  // namespace tarn::host

#include "tarn_host/commands.h"

#include <memory>
#include <string>

#include "standin/password_cipher.h"
#include "tarn_host/exit_code.h"
#include "tarn_host/plugin_option.h"

namespace tarn::host {

void AddKeygenCommand(CLI::App& app, int& exit_code) {
  const auto file = std::make_shared<std::string>();
  CLI::App* command =
      app.add_subcommand("keygen", "Make a key file for the stand-in's stored passwords");
  command->add_option("FILE", *file, "The file to make; one that exists is left as it is")
      ->required()
      ->check(NotEmpty())
      ->type_name("");
  command->footer(
      "The file is readable and writable by its owner alone, as the stand-in demands. Passwords\n"
      "enciphered with a lost key are lost.\n\n"
      "Example:\n"
      "  tarn_host keygen orders.key");
  command->callback([file, &exit_code] {
    standin::CipherKey::CreateFile(*file);
    exit_code = kExitSuccess;
  });
}

}  // namespace tarn::host

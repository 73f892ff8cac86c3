#include "tarn_host/commands.h"

#include <memory>
#include <string>

#include "standin/key_file.h"
#include "tarn_host/exit_code.h"
#include "tarn_host/plugin_option.h"

namespace tarn::host {

void AddKeygenCommand(CommandLine& line) {
  const auto file = std::make_shared<std::string>();
  Command command =
      line.Add("keygen", "Make a key file for the stand-in's stored passwords", [file] {
        standin::CipherKey::CreateFile(*file);
        return kExitSuccess;
      });
  command.NameArgument("FILE", *file, "The file to make; one that exists is left as it is",
                       Presence::kRequired);
  command.Footer(
      "The file is readable and writable by its owner alone, as the stand-in demands. Passwords\n"
      "enciphered with a lost key are lost.\n\n"
      "Example:\n"
      "  tarn_host keygen orders.key");
}

}  // namespace tarn::host

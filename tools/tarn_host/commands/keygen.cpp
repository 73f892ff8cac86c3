#include "tarn_host/commands.h"

#include <string>

#include "standin/key_file.h"
#include "tarn_host/errors.h"

namespace tarn::host {
namespace {

int Keygen(const std::string& file) {
  standin::CipherKey::CreateFile(file);
  return kExitSuccess;
}

}  // namespace

void AddKeygenCommand(CommandLine& line) {
  auto [command, file] =
      line.Add("keygen", "Make a key file for the stand-in's stored passwords", Keygen);
  command.Name("FILE", file, "", "The file to make; an existing file is not overwritten",
               Presence::kRequired);
  command.Footer(
      "The file is readable and writable by its owner alone, as the stand-in requires. If the\n"
      "key is lost, so are the passwords that were enciphered with it.\n\n"
      "Example:\n"
      "  tarn_host keygen orders.key");
}

}  // namespace tarn::host

#include "tarn_host/commands.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <map>
#include <string>

#include "standin/password_cipher.h"
#include "tarn_host/errors.h"
#include "tarn_host/exit_code.h"
#include "tarn_host/hidden_input.h"
#include "tarn_host/output.h"
#include "tarn_host/plugin_option.h"

namespace tarn::host {
namespace {

using standin::CipherKey;
using standin::SecretBytes;

struct EncryptOptions {
  unsigned int algorithm = standin::kAes256Gcm;
  std::string key_file;
};

// With room for a byte too many, so that a long password is refused rather than cut.
constexpr std::size_t kRoom = standin::kMaxPasswordBytes + 1;

// The first line of what `fd` gives, without its end: a newline, after a carriage return or not.
// Throws ToolError.
SecretBytes ReadLine(int fd) {
  // The carriage return belongs to no password and must not make one too long.
  SecretBytes line(kRoom + 1);
  auto filled = line.begin();
  auto end = filled;
  while (filled != line.end() && end == filled) {
    const ssize_t got =
        TEMP_FAILURE_RETRY(read(fd, &*filled, static_cast<std::size_t>(line.end() - filled)));
    if (got < 0) throw ToolError(SystemReason("standard input", errno));
    if (got == 0) break;
    filled += got;
    end = std::find(line.begin(), filled, '\n');
  }
  if (end != filled && end != line.begin() && end[-1] == '\r') --end;
  line.erase(end, line.end());
  return line;
}

// Asks twice on the terminal, without echo. Throws ToolError.
SecretBytes AskTerminal() {
  HiddenInput input;
  input.Ask("Password: ");
  SecretBytes password = ReadLine(input.Fd());
  if (password.empty()) return password;
  input.Ask("The same again: ");
  if (ReadLine(input.Fd()) != password) throw ToolError("encrypt: the two passwords differ");
  return password;
}

int Encrypt(const EncryptOptions& options) {
  // Before the question: a password typed in vain would be annoying.
  const CipherKey key = options.key_file.empty() ? CipherKey::FromEnvironment()
                                                 : CipherKey::FromFile(options.key_file);
  const SecretBytes password = isatty(STDIN_FILENO) == 1 ? AskTerminal() : ReadLine(STDIN_FILENO);
  if (password.empty()) throw ToolError("encrypt: standard input holds no password");
  Output output;
  output.Write(standin::EncryptPassword(password, options.algorithm, key) + '\n');
  output.Flush();
  return kExitSuccess;
}

}  // namespace

void AddEncryptCommand(CommandLine& line) {
  auto [command, options] =
      line.Add("encrypt", "Encipher a password for the stand-in's configuration", Encrypt);
  const std::map<std::string, unsigned int> algorithms{{"19", standin::kAes256Gcm},
                                                       {"aes-256-gcm", standin::kAes256Gcm},
                                                       {"18", standin::kAes128Ecb},
                                                       {"aes-128-ecb", standin::kAes128Ecb}};
  command.Choice("--algorithm", options.algorithm, algorithms, "NAME",
                 "aes-256-gcm (19, the default) or aes-128-ecb (18)");
  command.Name("--key", options.key_file, "FILE",
               "Key file; the one that TARN_KEY_FILE names if not given");
  command.Footer(
      "Reads the password from the first line of standard input, without echo and twice on a\n"
      "terminal, and prints the text to store.\n\n"
      "Examples:\n"
      "  tarn_host encrypt --key orders.key\n"
      "  tarn_host encrypt --algorithm aes-128-ecb < password.txt");
}

}  // namespace tarn::host

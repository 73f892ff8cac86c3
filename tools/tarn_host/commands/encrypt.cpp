#include "tarn_host/commands.h"

#include <openssl/ui.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "standin/password_cipher.h"
#include "tarn_host/errors.h"
#include "tarn_host/exit_code.h"
#include "tarn_host/output.h"
#include "tarn_host/plugin_option.h"
#include "tarn_host/secret_string.h"

namespace tarn::host {
namespace {

using standin::CipherKey;

struct EncryptOptions {
  unsigned int algorithm = standin::kAes256Gcm;
  std::string key_file;
};

// With room for a byte too many, so that a long password is refused rather than cut.
constexpr std::size_t kRoom = standin::kMaxPasswordBytes + 1;

// Leaves the first line of standard input in `password`, without its end: a newline, after a
// carriage return or not. Throws ToolError.
void ReadLine(std::string& password) {
  // The carriage return belongs to no password and must not make one too long.
  password.resize(kRoom + 1);
  std::size_t filled = 0;
  std::size_t end = std::string::npos;
  while (filled < password.size() && end == std::string::npos) {
    const ssize_t got = read(STDIN_FILENO, password.data() + filled, password.size() - filled);
    if (got == 0) break;
    if (got < 0) {
      if (errno == EINTR) continue;
      throw ToolError(SystemReason("standard input", errno));
    }
    filled += static_cast<std::size_t>(got);
    end = std::string_view(password).substr(0, filled).find('\n');
  }
  if (end != std::string::npos && end > 0 && password[end - 1] == '\r') --end;
  password.resize(std::min(end, filled));
}

// Asks twice on the terminal, without echo; false when interrupted. Whatever ends the question, a
// signal too, OpenSSL turns the echo on again. Throws ToolError.
bool AskTerminal(std::string& password) {
  constexpr int kInterrupted = -2;
  // UI_UTIL_read_pw wants a second buffer and a NUL in either.
  password.resize(kRoom);
  SecretString again(kRoom);
  const int result = UI_UTIL_read_pw(password.data(), again.Text().data(), static_cast<int>(kRoom),
                                     "Password: ", 1);
  if (result == kInterrupted) return false;
  if (result != 0) throw ToolError("encrypt: no password could be read, or the two differ");
  password.resize(password.find('\0'));
  return true;
}

int Encrypt(const EncryptOptions& options) {
  // Before the question: a password typed in vain would be annoying.
  const CipherKey key = options.key_file.empty() ? CipherKey::FromEnvironment()
                                                 : CipherKey::FromFile(options.key_file);
  // Never grows beyond this, so that no piece of the password is left behind.
  SecretString password(kRoom + 1);
  if (isatty(STDIN_FILENO) != 1) {
    ReadLine(password.Text());
  } else if (!AskTerminal(password.Text())) {
    return kExitInterrupted;
  }
  if (password.Text().empty()) throw ToolError("encrypt: standard input holds no password");
  const standin::SecretBytes bytes(password.Text().begin(), password.Text().end());
  Output output;
  output.Write(standin::EncryptPassword(bytes, options.algorithm, key) + '\n');
  output.Flush();
  return kExitSuccess;
}

}  // namespace

void AddEncryptCommand(CommandLine& line) {
  const auto options = std::make_shared<EncryptOptions>();
  Command command = line.Add("encrypt", "Encipher a password for the stand-in's configuration",
                             [options] { return Encrypt(*options); });
  const std::map<std::string, unsigned int> algorithms{{"19", standin::kAes256Gcm},
                                                       {"aes-256-gcm", standin::kAes256Gcm},
                                                       {"18", standin::kAes128Ecb},
                                                       {"aes-128-ecb", standin::kAes128Ecb}};
  command.Choice("--algorithm", options->algorithm, algorithms, "NAME",
                 "aes-256-gcm (19, the default) or aes-128-ecb (18)");
  command.NameOption("--key", options->key_file, "FILE",
                     "Key file; the one that TARN_KEY_FILE names if not given");
  command.Footer(
      "Reads the password from the first line of standard input, without echo and twice on a\n"
      "terminal, and prints the text to store.\n\n"
      "Examples:\n"
      "  tarn_host encrypt --key orders.key\n"
      "  tarn_host encrypt --algorithm aes-128-ecb < password.txt");
}

}  // namespace tarn::host

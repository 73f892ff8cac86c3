#include "tarn_host/commands.h"

#include <openssl/ui.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "standin/password_cipher.h"
#include "tarn_host/errors.h"
#include "tarn_host/exit_code.h"
#include "tarn_host/output.h"

namespace tarn::host {
namespace {

using standin::CipherAlgorithm;
using standin::CipherKey;
using standin::SecretBytes;

struct EncryptOptions {
  std::string algorithm = "aes-256-gcm";
  std::string key_file;
};

const std::map<std::string, CipherAlgorithm>& Algorithms() {
  static const std::map<std::string, CipherAlgorithm> kAlgorithms{
      {"19", CipherAlgorithm::kAes256Gcm},
      {"aes-256-gcm", CipherAlgorithm::kAes256Gcm},
      {"18", CipherAlgorithm::kAes128Ecb},
      {"aes-128-ecb", CipherAlgorithm::kAes128Ecb}};
  return kAlgorithms;
}

// The first line of standard input without its newline. Throws ToolError.
SecretBytes ReadLine() {
  // With room for a byte too many, so that a long password is refused rather than cut.
  SecretBytes line(standin::kMaxPasswordBytes + 1);
  std::size_t filled = 0;
  while (filled < line.size()) {
    const ssize_t got = read(STDIN_FILENO, line.data() + filled, line.size() - filled);
    if (got == 0) break;
    if (got < 0) {
      if (errno == EINTR) continue;
      throw ToolError(SystemReason("standard input", errno));
    }
    filled += static_cast<std::size_t>(got);
    if (std::find(line.begin(), line.end(), '\n') != line.end()) break;
  }
  const auto end = line.begin() + static_cast<std::ptrdiff_t>(filled);
  line.erase(std::find(line.begin(), end, '\n'), line.end());
  return line;
}

// Asks twice on the terminal, without echo; nothing when interrupted. Whatever ends the question, a
// signal too, OpenSSL turns the echo on again. Throws ToolError.
std::optional<SecretBytes> AskTerminal() {
  constexpr int kInterrupted = -2;
  // UI_UTIL_read_pw wants a second buffer and a NUL in either.
  constexpr std::size_t kBufferBytes = standin::kMaxPasswordBytes + 1;
  SecretBytes password(kBufferBytes);
  SecretBytes again(kBufferBytes);
  const int result = UI_UTIL_read_pw(reinterpret_cast<char*>(password.data()),
                                     reinterpret_cast<char*>(again.data()),
                                     static_cast<int>(kBufferBytes), "Password: ", 1);
  if (result == kInterrupted) return std::nullopt;
  if (result != 0) throw ToolError("encrypt: no password could be read, or the two differ");
  password.erase(std::find(password.begin(), password.end(), '\0'), password.end());
  return password;
}

int Encrypt(const EncryptOptions& options) {
  // Before the question: a password typed in vain would be annoying.
  const CipherKey key = options.key_file.empty() ? CipherKey::FromEnvironment()
                                                 : CipherKey::FromFile(options.key_file);
  const std::optional<SecretBytes> password =
      isatty(STDIN_FILENO) == 1 ? AskTerminal() : ReadLine();
  if (!password) return kExitInterrupted;
  if (password->empty()) throw ToolError("encrypt: standard input holds no password");
  Output output;
  output.Write(standin::EncryptPassword(*password, Algorithms().at(options.algorithm), key) +
               '\n');
  output.Flush();
  return kExitSuccess;
}

}  // namespace

void AddEncryptCommand(CLI::App& app, int& exit_code) {
  const auto options = std::make_shared<EncryptOptions>();
  CLI::App* command =
      app.add_subcommand("encrypt", "Encipher a password for the stand-in's configuration");
  command
      ->add_option("--algorithm", options->algorithm,
                   "aes-256-gcm (19, the default) or aes-128-ecb (18)")
      ->check(CLI::IsMember({"aes-256-gcm", "19", "aes-128-ecb", "18"}))
      ->option_text("NAME");
  command
      ->add_option("--key", options->key_file,
                   "Key file; the one that TARN_KEY_FILE names if not given")
      ->type_name("FILE");
  command->footer(
      "Reads the password from the first line of standard input, without echo and twice on a\n"
      "terminal, and prints the text to store.\n\n"
      "Examples:\n"
      "  tarn_host encrypt --key orders.key\n"
      "  tarn_host encrypt --algorithm aes-128-ecb < password.txt");
  command->callback([options, &exit_code] { exit_code = Encrypt(*options); });
}

}  // namespace tarn::host

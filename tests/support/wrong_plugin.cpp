// A library that a host must not load. It has every fault that still allows an examination, and
// needs a platform of its own.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>

#include "impl_dao/product_interface.h"
#include "platform/quill_process.h"

namespace {

// Writes the number of its process to the file `number`, and stays, whatever signal is caught.
void Stay() {
  std::ofstream("number") << getpid() << std::endl;
  for (unsigned left = 60; left > 0;) left = sleep(left);
  _exit(0);
}

// Writes without an end to every descriptor that may be a pipe to the tool.
[[noreturn]] void TellALot() {
  const std::string text(1U << 16U, 'a');
  for (int fd = 3;; fd = fd < 63 ? fd + 1 : 3) {
    [[maybe_unused]] const ssize_t written = write(fd, text.data(), text.size());
  }
}

void Misbehave(const std::string& deed) {
  if (deed == "exit") std::exit(0);
  if (deed == "stay") Stay();
  if (deed == "tell") TellALot();
  // The child process keeps all streams open.
  if (deed == "fork" && fork() == 0) Stay();
  std::fputs("pass  everything: yes", stderr);
  std::puts("pass  everything: yes");
}

}  // namespace

class WrongProduct final : public impl_dao::CProductInterface {
 public:
  void LogError(const char* /*message*/) override {}
  void LogWarning(const char* /*message*/) override {}
  void LogDebug(const char* /*message*/) override {}
  // With WRONG_PLUGIN_MAPS set the result is wrong for 0, otherwise for every other status.
  std::int64_t MapErrorCode(int /*status*/) override {
    return std::getenv("WRONG_PLUGIN_MAPS") == nullptr ? QuillGetProcId() - 1 : 0xB000013;
  }
  bool GetDBUserAndPassword(std::string& /*user*/, std::string& /*password*/,
                            const std::string& /*dbName*/) override {
    return false;
  }
  bool GetDBConnectAddress(std::string& /*address*/, const std::string& /*dbName*/) override {
    return false;
  }
  bool GetDBConnectProperties(std::map<std::string, refl::CValue>& /*properties*/) override {
    return false;
  }
  bool GetDBType(std::string& /*dbType*/, const std::string& /*dbName*/) override { return false; }
  void NormalizeSQL(std::string& sql) override {
    if (std::getenv("WRONG_PLUGIN_NEVER_ENDS") != nullptr) Stay();
    if (std::getenv("WRONG_PLUGIN_KEEPS") != nullptr) return;
    if (sql.size() > 1) throw std::runtime_error("no such\nluck");
    sql += '?';
  }
};

// A GNU unique symbol, which prevents unloading of its library.
asm(R"(
    .globl pinned
    .type pinned, @gnu_unique_object
    .data
pinned:
    .quad 0
    .size pinned, 8
    .text
)");

extern "C" __attribute__((visibility("default"))) impl_dao::CProductInterface*
GetProductInterfaceForVESTA() {
  if (const char* const deed = std::getenv("WRONG_PLUGIN_DOES")) Misbehave(deed);
  static WrongProduct products[2];
  static unsigned calls = 0;
  // No object, or one whose dispatch table lacks an entry; entry 0 is the type information.
  if (const char* const entry = std::getenv("WRONG_PLUGIN_LACKS")) {
    if (*entry == '\0') return nullptr;
    constexpr int kEntries = 10;
    static const void* table[kEntries];
    static const void* const* const object = table + 1;
    std::copy_n(*reinterpret_cast<const void* const* const*>(&products[0]) - 1, kEntries, table);
    table[std::atoi(entry)] = nullptr;
    return reinterpret_cast<impl_dao::CProductInterface*>(const_cast<const void* const**>(&object));
  }
  return &products[calls++ % 2];
}

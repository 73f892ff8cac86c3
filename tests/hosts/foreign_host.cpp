// A host that shares nothing with this project: it has its own declaration of the interface, its
// own compiler and its own language level. Usage: foreign_host LIBRARY. Prints each check that
// fails.
#include <dlfcn.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <typeinfo>

namespace refl {
class CValue;
}

namespace {

// The nine slots by position, under the host's own names. Slot 4 returns an unsigned code, since a
// host may declare it so.
struct Product {
  virtual void Slot1(const char* message) = 0;
  virtual void Slot2(const char* message) = 0;
  virtual void Slot3(const char* message) = 0;
  virtual std::uint64_t Slot4(int status) = 0;
  virtual bool Slot5(std::string& user, std::string& password, const std::string& name) = 0;
  virtual bool Slot6(std::string& address, const std::string& name) = 0;
  virtual bool Slot7(std::map<std::string, refl::CValue>& properties) = 0;
  virtual bool Slot8(std::string& type, const std::string& name) = 0;
  virtual void Slot9(std::string& sql) = 0;

 protected:
  ~Product() = default;
};

int failures = 0;

void Check(bool holds, const char* fact) {
  if (!holds) std::printf("FAIL  %s\n", fact), ++failures;
}

void Use(Product& product) {
  // The log shows whether each call reached its operation.
  product.Slot1("first");
  product.Slot2("second");
  product.Slot3("third");
  Check(product.Slot4(0) == 0 && product.Slot4(-7) == 0xB000013, "slot 4");
  std::string user = "before";
  std::string other = "before";
  Check(product.Slot5(user, other, "none") && user.empty() && other.empty(), "slot 5");
  Check(product.Slot6(other, "none") && other.empty(), "slot 6");
  Check(product.Slot8(user, "none") && user.empty(), "slot 8");
  std::string sql = "select t7.a from tab t7 where t7.b = 1.50";
  product.Slot9(sql);
  Check(sql == "SELECT a FROM tab ____t1 WHERE b = 1.5", "slot 9");
  // An exception passes from one compiler's code to the other's.
  sql = "x=1.0e999";
  try {
    product.Slot9(sql);
    Check(false, "slot 9 throws");
  } catch (const std::bad_cast&) {
    Check(sql == "x=1.0e999", "slot 9 leaves the statement when it throws");
  }
}

}  // namespace

int main(int argc, char** argv) {
  void* const library = argc == 2 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : nullptr;
  if (library == nullptr) return std::fprintf(stderr, "%s\n", dlerror()), 1;
  using Entry = Product* (*)();
  const auto entry = reinterpret_cast<Entry>(dlsym(library, "GetProductInterfaceForVESTA"));
  Check(entry != nullptr && entry() == entry(), "entry function");
  if (entry != nullptr) Use(*entry());
  dlclose(library);
  Check(dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD) == nullptr, "unloaded by dlclose");
  if (failures == 0) std::fprintf(stderr, "all holds\n");
  return failures;
}

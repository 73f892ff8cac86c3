// A host of another house: its own declaration of the interface, its own compiler and language
// level. Usage: foreign_host LIBRARY. Says what does not hold and exits with 1.
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

// The nine slots by position, under names of the host's own. The code is unsigned here, as a
// host may have it.
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
  std::printf("%s  %s\n", holds ? "pass" : "FAIL", fact);
  if (!holds) ++failures;
}

void Use(Product& product) {
  Check(product.Slot4(0) == 0, "slot 4 of 0");
  Check(product.Slot4(7) == 0xB000013, "slot 4 of 7");
  std::string sql = "select t7.a from tab t7 where t7.b = 1.50";
  product.Slot9(sql);
  Check(sql == "SELECT a FROM tab ____t1 WHERE b = 1.5", "slot 9");
  // An exception crosses from one compiler's code into the other's.
  std::string beyond_double = "x=1.0e999";
  try {
    product.Slot9(beyond_double);
    Check(false, "slot 9 throws");
  } catch (const std::bad_cast&) {
    Check(beyond_double == "x=1.0e999", "slot 9 throws and leaves the statement");
  }
  std::string type = "before";
  Check(product.Slot8(type, "none") && type.empty(), "slot 8 of an unknown database");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  void* const library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    std::fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  using Entry = Product* (*)();
  const auto entry = reinterpret_cast<Entry>(dlsym(library, "GetProductInterfaceForVESTA"));
  Check(entry != nullptr, "entry function");
  if (entry != nullptr) Use(*entry());
  dlclose(library);
  Check(dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD) == nullptr, "unloaded by dlclose");
  return failures == 0 ? 0 : 1;
}

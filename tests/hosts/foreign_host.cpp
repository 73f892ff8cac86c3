// A host of another house: its own declaration of the interface, its own compiler and language
// level, nothing of this project. Usage: foreign_host LIBRARY. Says what does not hold.
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
  if (!holds) std::printf("FAIL  %s\n", fact), ++failures;
}

void Use(Product& product) {
  // The log shows whether these came where they should.
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
  // An exception crosses from one compiler's code into the other's.
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

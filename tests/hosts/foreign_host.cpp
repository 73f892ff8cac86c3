// A host that shares nothing with this project: it has its own declaration of the interface, its
// own compiler and its own language level. Usage: foreign_host LIBRARY. Ends at a failed check.
#undef NDEBUG
#include <dlfcn.h>

#include <cassert>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <typeinfo>

namespace refl {
class CValue;
}

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

int main(int argc, char** argv) {
  assert(argc == 2);
  void* const library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) return std::fprintf(stderr, "%s\n", dlerror()), 1;
  const auto entry =
      reinterpret_cast<Product* (*)()>(dlsym(library, "GetProductInterfaceForVESTA"));
  assert(entry != nullptr && entry() == entry());
  Product& product = *entry();
  // The log shows whether each call reached its operation.
  product.Slot1("first");
  product.Slot2("second");
  product.Slot3("third");
  assert(product.Slot4(0) == 0 && product.Slot4(-7) == 0xB000013);
  std::string user = "before", other = "before";
  assert(product.Slot5(user, other, "none") && user.empty() && other.empty());
  other = "before";
  assert(product.Slot6(other, "none") && other.empty());
  other = "before";
  assert(product.Slot8(other, "none") && other.empty());
  std::string sql = "select t7.a from tab t7 where t7.b = 1.50";
  product.Slot9(sql);
  assert(sql == "SELECT a FROM tab ____t1 WHERE b = 1.5");
  // An exception passes from one compiler's code to the other's.
  sql = "x=1.0e999";
  bool caught = false;
  try {
    product.Slot9(sql);
  } catch (const std::bad_cast&) {
    caught = true;
  }
  assert(caught && sql == "x=1.0e999");
  dlclose(library);
  assert(dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD) == nullptr);
  std::fprintf(stderr, "all holds\n");
}

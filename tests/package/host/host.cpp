// Prints the plug-in's answer to each operation, on any platform. With OWN_INTERFACE it shares
// nothing with this project, not even the declaration of the interface.
#include <dlfcn.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <typeinfo>

#ifdef OWN_INTERFACE
namespace refl {
class CValue;
}

// The nine slots by position. MapErrorCode's result is unsigned, since a host may declare it so.
struct Interface {
  virtual void LogError(const char* message) = 0;
  virtual void LogWarning(const char* message) = 0;
  virtual void LogDebug(const char* message) = 0;
  virtual std::uint64_t MapErrorCode(int status) = 0;
  virtual bool GetDBUserAndPassword(std::string&, std::string&, const std::string& name) = 0;
  virtual bool GetDBConnectAddress(std::string& address, const std::string& name) = 0;
  virtual bool GetDBConnectProperties(std::map<std::string, refl::CValue>& properties) = 0;
  virtual bool GetDBType(std::string& type, const std::string& name) = 0;
  virtual void NormalizeSQL(std::string& sql) = 0;
};
#else
#include "impl_dao/product_interface.h"
#include "platform/c_value.h"
using Interface = impl_dao::CProductInterface;
#endif

void Use(Interface& product) {
  // The log shows whether each call reached its operation.
  product.LogError("e");
  product.LogWarning("w");
  product.LogDebug("d");
  std::string type = "before", user = type, password = type, address = type;
  const int done = product.GetDBType(type, "mysql") +
                   product.GetDBUserAndPassword(user, password, "mysql") +
                   product.GetDBConnectAddress(address, "mysql");
  std::string sql = "select t1.a from tab t1 where t1.b = 0x1F", bad = "x=1.0e999";
  product.NormalizeSQL(sql);
  std::printf("%d|%s|%s|%s|%s|%s|%llx\n", done, type.c_str(), user.c_str(), password.c_str(),
              address.c_str(), sql.c_str(),
              static_cast<unsigned long long>(product.MapErrorCode(5)));
  // An exception passes from the library's code to the host's.
  try {
    product.NormalizeSQL(bad);
  } catch (const std::bad_cast&) {
    std::printf("%s stays\n", bad.c_str());
  }
#ifndef OWN_INTERFACE
  std::map<std::string, refl::CValue> properties;
  product.GetDBConnectProperties(properties);
  for (const auto& [name, value] : properties) {
    std::printf("%s=%s\n", name.c_str(), value.ToString().c_str());
  }
#endif
}

int main() {
  void* library = dlopen(PLUGIN, RTLD_NOW | RTLD_LOCAL);
  void* entry = library == nullptr ? nullptr : dlsym(library, "GetProductInterfaceForVESTA");
  if (entry == nullptr) return std::fprintf(stderr, "host: %s\n", dlerror()), 1;
  Use(*reinterpret_cast<Interface* (*)()>(entry)());
  dlclose(library);
  if (dlopen(PLUGIN, RTLD_NOW | RTLD_NOLOAD) == nullptr) std::puts("unloaded");
}

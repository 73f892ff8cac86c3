// Prints the plug-in's answer to each operation, on any platform.
#include <dlfcn.h>

#include <cstdio>
#include <map>
#include <string>

#include "impl_dao/product_interface.h"
#include "platform/c_value.h"

int main() {
  void* library = dlopen(PLUGIN, RTLD_NOW | RTLD_LOCAL);
  void* entry = library == nullptr ? nullptr : dlsym(library, "GetProductInterfaceForVESTA");
  if (entry == nullptr) return std::fprintf(stderr, "small_host: %s\n", dlerror()), 1;
  auto& product = *reinterpret_cast<impl_dao::CProductInterface* (*)()>(entry)();

  product.LogError("e");
  product.LogWarning("w");
  product.LogDebug("d");
  std::string type, user, password, address, sql = "select t1.a from tab t1 where t1.b = 0x1F";
  std::map<std::string, refl::CValue> properties;
  product.GetDBType(type, "mysql");
  product.GetDBUserAndPassword(user, password, "mysql");
  product.GetDBConnectAddress(address, "mysql");
  product.GetDBConnectProperties(properties);
  product.NormalizeSQL(sql);
  std::printf("%s|%s|%s|%s|%s|%llx\n", type.c_str(), user.c_str(), password.c_str(),
              address.c_str(), sql.c_str(), static_cast<long long>(product.MapErrorCode(5)));
  for (const auto& [name, value] : properties) {
    std::printf("%s=%s\n", name.c_str(), value.ToString().c_str());
  }
}

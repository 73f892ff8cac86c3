// Prints a statement's canonical text and the connection properties.
#include <dlfcn.h>

#include <cstdio>
#include <map>
#include <string>

#include "impl_dao/product_interface.h"
#include "platform/c_value.h"

int main() {
  void* library = dlopen(PLUGIN, RTLD_NOW | RTLD_LOCAL);
  void* entry = library == nullptr ? nullptr : dlsym(library, "GetProductInterfaceForVESTA");
  if (entry == nullptr) {
    std::fprintf(stderr, "small_host: %s\n", dlerror());
    return 1;
  }
  auto& product = *reinterpret_cast<impl_dao::CProductInterface* (*)()>(entry)();

  std::string sql = "select t1.a from tab t1 where t1.b = 0x1F";
  product.NormalizeSQL(sql);
  std::printf("%s\n", sql.c_str());

  std::map<std::string, refl::CValue> properties;
  product.GetDBConnectProperties(properties);
  for (const auto& property : properties) {
    std::printf("%s=%s\n", property.first.c_str(), property.second.ToString().c_str());
  }
}

#include "plugin/platform_module.h"

#include "platform/c_value.h"
#include "platform/quill_process.h"

namespace {

void ReadProperties(impl_dao::CProductInterface& product,
                    std::map<std::string, std::string>& texts) {
  std::map<std::string, refl::CValue> properties;
  product.GetDBConnectProperties(properties);
  texts.clear();
  for (const auto& [name, value] : properties) texts.emplace(name, value.ToString());
}

}  // namespace

extern "C" __attribute__((visibility("default")))
const tarn::host::PlatformModule tarn_platform_module;
const tarn::host::PlatformModule tarn_platform_module{
    reinterpret_cast<const void*>(&QuillGetProcId), &ReadProperties};

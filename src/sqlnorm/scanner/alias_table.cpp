#include "sqlnorm/scanner/alias_table.h"

#include <cstdint>
#include <string_view>

namespace tarn::sqlnorm {

std::uint32_t AliasTable::NumberInMap(std::string_view alias) {
  const auto [entry, is_new] = map_.try_emplace(alias, count_ + 1);
  if (is_new) ++count_;
  return entry->second;
}

}  // namespace tarn::sqlnorm

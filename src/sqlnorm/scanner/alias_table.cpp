#include "sqlnorm/scanner/alias_table.h"

#include <sys/auxv.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>

namespace tarn::sqlnorm {
namespace {

__extension__ using Product = unsigned __int128;

}  // namespace

// A polynomial in a base that nobody outside knows, over the field of 2^61 - 1 elements: two
// aliases of n bytes collide for at most n bases of all.
std::size_t AliasTable::KeyedHash::operator()(std::string_view alias) const noexcept {
  constexpr std::uint64_t kPrime = (std::uint64_t{1} << 61) - 1;
  // 16 random bytes that the kernel hands to every process (getauxval(3)).
  std::uint64_t base = 0;
  // NOLINTNEXTLINE(performance-no-int-to-ptr): that is how getauxval hands out an address
  std::memcpy(&base, reinterpret_cast<const void*>(getauxval(AT_RANDOM)), sizeof base);
  base %= kPrime;
  std::uint64_t hash = 1;
  for (const char c : alias) {
    const Product product = static_cast<Product>(hash) * base;
    hash = static_cast<std::uint64_t>(product & kPrime) +
           static_cast<std::uint64_t>(product >> 61) + static_cast<unsigned char>(c);
    hash %= kPrime;
  }
  return hash;
}

std::uint32_t AliasTable::NumberOfMany(std::string_view alias) {
  if (!many_) many_ = std::make_unique<Many>();
  const auto [entry, is_new] = many_->try_emplace(alias, count_ + 1);
  if (is_new) ++count_;
  return entry->second;
}

}  // namespace tarn::sqlnorm

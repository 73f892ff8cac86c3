#include "sqlnorm/scanner/alias_table.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "sqlnorm/scanner/byte_block.h"
#include "sqlnorm/scanner/byte_class.h"
#include "sqlnorm/scanner/elements.h"

namespace tarn::sqlnorm {
namespace {

// An alias during sorting: a chunk of its digits in the upper half, its index among all aliases in
// the lower half. Sorted as numbers, records are in order of their chunks, and records of equal
// chunks are in order of appearance.
using Record = std::uint64_t;

constexpr unsigned kIndexBits = 32;
constexpr std::size_t kChunkDigits = 8;

std::uint32_t IndexOf(Record record) noexcept { return static_cast<std::uint32_t>(record); }
std::uint32_t ChunkOf(Record record) noexcept {
  return static_cast<std::uint32_t>(record >> kIndexBits);
}

// The chunk of digits at `p`: four bits for each of eight bytes, 0xF for the first byte that is no
// digit and for all bytes after it.
//   "12345678 "  ->  0x87654321
//   "123, 5678"  ->  0xFFFFF321
std::uint32_t LoadChunk(const char* p) noexcept {
  constexpr std::uint64_t kAsciiZeros = 0x3030303030303030;
  constexpr std::uint64_t kLowBits = 0x7F7F7F7F7F7F7F7F;
  constexpr std::uint64_t kHighBits = 0x8080808080808080;
  constexpr std::uint64_t kBeyondDigits = 0x7676767676767676;  // reaches the high bit from 10 on
  std::uint64_t values = LoadEight(p) ^ kAsciiZeros;
  const std::uint64_t others = (((values & kLowBits) + kBeyondDigits) | values) & kHighBits;
  if (others != 0) values |= ~std::uint64_t{0} << (std::countr_zero(others) / 8 * 8);
  values &= 0x0F0F0F0F0F0F0F0F;
  values = (values | values >> 4) & 0x00FF00FF00FF00FF;
  values = (values | values >> 8) & 0x0000FFFF0000FFFF;
  return static_cast<std::uint32_t>(values | values >> 16);
}

// Whether an alias ends within its chunk. An alias that ends just after a chunk has an empty one
// next.
bool EndsWithin(std::uint32_t chunk) noexcept { return chunk >> 28 == 0xF; }

// Sorts `count` records. `scratch` has space for as many.
void Sort(Record* records, std::size_t count, Record* scratch) noexcept {
  constexpr std::size_t kFew = 128;
  if (count < kFew) {
    std::sort(records, records + count);
    return;
  }
  // A radix sort of the chunks, from the lowest byte to the highest. Each round keeps the order of
  // the round before among equal bytes. At the beginning the records are in order of their indexes.
  constexpr std::size_t kRounds = 4;
  constexpr std::size_t kValues = 256;
  std::array<std::array<std::size_t, kValues>, kRounds> places{};
  const auto byte_of = [](Record record, std::size_t round) {
    return static_cast<std::size_t>(record >> (kIndexBits + 8 * round)) % kValues;
  };
  for (std::size_t i = 0; i < count; ++i) {
    for (std::size_t round = 0; round < kRounds; ++round)
      ++places[round][byte_of(records[i], round)];
  }
  Record* from = records;
  Record* to = scratch;
  for (std::size_t round = 0; round < kRounds; ++round) {
    std::array<std::size_t, kValues>& place = places[round];
    if (place[byte_of(from[0], round)] == count) continue;  // the same byte in all
    std::size_t sum = 0;
    for (std::size_t& p : place) sum += std::exchange(p, sum);
    for (std::size_t i = 0; i < count; ++i) to[place[byte_of(from[i], round)]++] = from[i];
    std::swap(from, to);
  }
  if (from != records) std::copy(from, from + count, records);
}

// Collects the first byte of each alias of a text.
struct AliasCollector {
  const char* Word(const char* begin, const char* end) {
    if (IsAlias(begin, end)) aliases.push_back(begin);
    return end;
  }
  static const char* Sign(const char* p, const char* /*taken*/) noexcept { return p + 1; }

  std::vector<const char*> aliases;
};

ByteBlock MarkAliasCandidates(const char* q) noexcept {
  return (LoadBlock(q) == 't') & (LoadBlock(q + 1) - '0' < 10);
}

// An upper bound of the number of aliases from `begin` on.
std::size_t CountAliasCandidates(const char* begin, const char* end) noexcept {
  std::size_t count = 0;
  for (const char* block = begin; block < end; block += BlockClasses::kBytes) {
    count += static_cast<std::size_t>(std::popcount(MarkedBits(block, MarkAliasCandidates)));
  }
  return count;
}

// For each alias, the index of the first alias with the same text.
std::vector<std::uint32_t> FindFirstAppearances(const std::vector<const char*>& aliases) {
  const std::size_t count = aliases.size();
  if (count > std::numeric_limits<std::uint32_t>::max()) throw std::bad_alloc();
  std::vector<std::uint32_t> first(count);
  const std::unique_ptr<Record[]> records(new Record[count]);
  const std::unique_ptr<Record[]> scratch(new Record[count]);
  for (std::size_t i = 0; i < count; ++i) records[i] = i;

  // Groups of aliases that have all digits before a chunk in common. Each is sorted by that chunk,
  // which splits it into smaller groups, until a group has one member or its aliases have ended. So
  // each chunk of the text is read at most once.
  struct Group {
    std::size_t begin;  // in records
    std::size_t end;
    std::size_t chunk;
  };
  std::vector<Group> groups{{0, count, 0}};
  while (!groups.empty()) {
    const Group group = groups.back();
    groups.pop_back();
    for (std::size_t i = group.begin; i < group.end; ++i) {
      const std::uint32_t index = IndexOf(records[i]);
      const char* const digits = aliases[index] + 1;
      records[i] = Record{LoadChunk(digits + kChunkDigits * group.chunk)} << kIndexBits | index;
    }
    Sort(&records[group.begin], group.end - group.begin, &scratch[group.begin]);
    for (std::size_t i = group.begin; i < group.end;) {
      const std::size_t begin = i;
      const std::uint32_t chunk = ChunkOf(records[begin]);
      while (i < group.end && ChunkOf(records[i]) == chunk) ++i;
      if (i - begin > 1 && !EndsWithin(chunk)) {
        groups.push_back({begin, i, group.chunk + 1});
        continue;
      }
      for (std::size_t member = begin; member < i; ++member) {
        first[IndexOf(records[member])] = IndexOf(records[begin]);
      }
    }
  }
  return first;
}

}  // namespace

void AliasTable::NumberRest(const char* begin) {
  AliasCollector collector;
  collector.aliases.reserve(kInPlace + CountAliasCandidates(begin, text_end_));
  for (const Name& name : names_) collector.aliases.push_back(name.text);
  VisitElements(begin, static_cast<std::size_t>(text_end_ - begin), collector);
  numbers_ = FindFirstAppearances(collector.aliases);
  count_ = 0;
  for (std::size_t i = 0; i < numbers_.size(); ++i) {
    // The first appearance of any other alias has its number already.
    numbers_[i] = numbers_[i] == i ? ++count_ : numbers_[numbers_[i]];
  }
  next_ = kInPlace;
}

}  // namespace tarn::sqlnorm

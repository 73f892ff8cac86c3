#include "shapes/shape.h"

#include <algorithm>
#include <iterator>
#include <tuple>

namespace tarn::host {
namespace {

// Sorts examples: the one with the smallest key is kept.
template <typename Text>
auto KeyOf(const BasicExample<Text>& example) noexcept {
  using View = std::string_view;
  // The slowest example has the smallest key. One without a duration comes after all others.
  const std::int64_t slowness =
      example.microseconds ? -static_cast<std::int64_t>(*example.microseconds) : 1;
  return std::make_tuple(slowness, SortKey(example.time), View(example.text).size(),
                         View(example.text), View(example.user), View(example.database),
                         View(example.host), View(example.parameters));
}

void AddCounter(std::optional<std::uint64_t>& sum, const std::optional<std::uint64_t>& number) {
  if (number) sum = CappedSum(sum.value_or(0), std::min(*number, kMostSum));
}

template <typename Text>
void OfferExample(std::optional<Example>& example, const BasicExample<Text>& offered) {
  if (example && KeyOf(*example) <= KeyOf(offered)) return;
  example = Example{
      std::string(offered.text),      offered.microseconds,          offered.time,
      std::string(offered.user),      std::string(offered.database), std::string(offered.host),
      std::string(offered.parameters)};
}

void AddError(std::map<std::string, std::uint64_t>& errors, const std::string& error,
              std::uint64_t number) {
  std::uint64_t& sum = errors[error];
  sum = CappedSum(sum, number);
}

void AddQueryId(std::set<std::string>& ids, const std::string& id) {
  ids.insert(id);
  if (ids.size() > Shape::kMostQueryIds) ids.erase(std::prev(ids.end()));
}

}  // namespace

Counters& Counters::operator+=(const Counters& other) {
  count = CappedSum(count, other.count);
  times += other.times;
  AddCounter(lock_microseconds, other.lock_microseconds);
  for (const RowCounter& rows : kRowCounters) AddCounter(this->*rows.value, other.*rows.value);
  failures = CappedSum(failures, other.failures);
  WidenSpan(first_seen, last_seen, other.first_seen);
  WidenSpan(first_seen, last_seen, other.last_seen);
  return *this;
}

void Shape::Add(std::string_view statement, const Execution& execution) {
  Counters one;
  std::optional<std::uint64_t> microseconds;
  if (execution.seconds) microseconds = TimeStatistics::Microseconds(*execution.seconds);
  if (execution.executed) {
    one.count = 1;
    // Adding to `one` would allocate a map for each execution.
    if (microseconds) times.Add(*microseconds);
  } else {
    one.times.total = microseconds.value_or(0);
    microseconds.reset();
  }
  if (execution.lock_seconds) {
    one.lock_microseconds = TimeStatistics::Microseconds(*execution.lock_seconds);
  }
  one.rows_sent = execution.rows_sent;
  one.rows_examined = execution.rows_examined;
  one.rows_affected = execution.rows_affected;
  one.failures = execution.error.empty() ? 0 : 1;
  one.first_seen = one.last_seen = execution.time;
  Counters::operator+=(one);
  if (!execution.error.empty()) AddError(errors, std::string(execution.error), 1);
  if (!execution.query_id.empty()) AddQueryId(query_ids, std::string(execution.query_id));
  OfferExample(example, BasicExample<std::string_view>{statement, microseconds, execution.time,
                                                       execution.user, execution.database,
                                                       execution.host, execution.parameters});
}

Shape& Shape::operator+=(const Shape& other) {
  Counters::operator+=(other);
  for (const auto& [error, number] : other.errors) AddError(errors, error, number);
  for (const std::string& id : other.query_ids) AddQueryId(query_ids, id);
  keys.insert(other.keys.begin(), other.keys.end());
  if (other.example) OfferExample(example, *other.example);
  return *this;
}

}  // namespace tarn::host

#include "sql/dialect.h"

#include <array>
#include <cstddef>
#include <map>
#include <string>

namespace tarn::host {
namespace {

// In the order of the enumerators.
constexpr std::array<DialectRules, 3> kRules{{
    {.name = "mysql",
     .double_quoted_texts = true,
     .backquoted_names = true,
     .backslash_escapes = true,
     .character_sets = true,
     .hash_comments = true,
     .spaced_dashes = true,
     .executable_comments = true,
     .variables = true,
     .value_is_values = true,
     .delimiter_lines = true},
    {.name = "ansi", .unicode_prefix = true, .variables = true, .go_lines = true},
    {.name = "postgres",
     .escape_prefix = true,
     .dollar_quotes = true,
     .unicode_prefix = true,
     .nested_comments = true,
     .grouped_digits = true},
}};

}  // namespace

const DialectRules& RulesOf(Dialect dialect) noexcept {
  return kRules[static_cast<std::size_t>(dialect)];
}

const std::map<std::string, Dialect>& Dialects() {
  static const std::map<std::string, Dialect> kDialects = [] {
    std::map<std::string, Dialect> dialects;
    for (std::size_t i = 0; i < kRules.size(); ++i) {
      dialects.emplace(kRules[i].name, static_cast<Dialect>(i));
    }
    return dialects;
  }();
  return kDialects;
}

}  // namespace tarn::host

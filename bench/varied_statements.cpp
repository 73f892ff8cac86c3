#include "varied_statements.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace tarn::bench {
namespace {

constexpr std::array kTables{"customers", "orders",    "order_items", "products", "invoices",
                             "sessions",  "addresses", "payments",    "stock",    "carts",
                             "coupons",   "reviews",   "price_lists", "shipments"};
constexpr std::array kColumns{
    "id",          "name",       "email",    "status",   "created_at", "customer_id", "order_id",
    "product_id",  "quantity",   "price",    "total",    "tax",        "currency",    "country",
    "postal_code", "updated_at", "token",    "discount", "warehouse",  "weight",      "sku",
    "paid",        "title",      "rating",   "city",     "street",     "phone",       "locale",
    "expires",     "invoice_no", "due_date", "category"};
constexpr std::array kWords{
    "open", "paid", "shipped", "returned", "EUR",   "USD",   "de-AT", "Linz",
    "Graz", "gift", "express", "O Hara",   "%tea%", "green", "large", "b.smith@shop.example"};
constexpr std::array kOperators{"=", "<", ">", "<=", ">=", "!=", "<>"};

// The parts of a form that differ between statements:
//   {t} table  {c} column  {n} integer  {d} decimal  {h} hexadecimal  {w} quoted word
//   {o} comparison operator  {v} any value  {N} integers, separated by commas
//   {C} columns, separated by commas  {V} one row of values  {R} further rows  {P} parameters
//   {A} further conditions  {a} an alias of the first table, {b} one of the second
constexpr std::array<std::string_view, 32> kForms{
    "SELECT {C} FROM {t} WHERE {c} = {n}",
    "SELECT {C} FROM {t} WHERE {c} = {w}{A}",
    "select {C} from {t} where {c}={n} and {c} {o} {v} order by {c} limit {n}",
    "SELECT COUNT(*) FROM {t} WHERE {c} {o} {n}{A}",
    "SELECT {c}, SUM({c}), AVG({c}) FROM {t} WHERE {c} > {d} GROUP BY {c} HAVING SUM({c}) > {d}",
    "select {a}.{c}, {b}.{c} from {t} {a} join {t} {b} on ({a}.{c} = {b}.{c}) where {a}.{c} = {v}",
    "SELECT {a}.{c}, {a}.{c} FROM {t} {a} WHERE ({a}.{c} = {n} AND {a}.{c} {o} {n})",
    "SELECT {a}.*, {b}.{c} FROM {t} {a} LEFT JOIN {t} {b} ON {a}.{c}={b}.{c} WHERE {b}.{c} IS NULL",
    "SELECT {C} FROM {t} WHERE {c} IN ({N})",
    "select {c} from {t} where {c} in ({N}){A} order by {c} desc",
    "SELECT {C} FROM {t} WHERE NOT ({c} IN ({N})) AND {c} = {v}",
    "SELECT {C} FROM {t} WHERE {c} IN (@p0, {P}) AND {c} {o} {v}",
    "INSERT INTO {t} ({C}) VALUES ({V})",
    "insert into {t} ({C}) values ({V})",
    "INSERT INTO {t} ({C}) VALUES ({V}){R}",
    "insert into {t}({C}) values({V}){R}",
    "INSERT INTO {t} ({C}) VALUES (@p0, {P})",
    "UPDATE {t} SET {c} = {v}, {c} = {v} WHERE {c} = {n}",
    "update {t} set {c}={c}+{n}, {c}={v} where {c}={n} and {c}<>{w}",
    "UPDATE {t} SET {c} = {c} - {d} WHERE ({c} {o} {n} and {c} = {n})",
    "DELETE FROM {t} WHERE {c} = {n}",
    "delete from {t} where {c} < {d}{A}",
    "DELETE FROM {t} {a} WHERE {a}.{c} = {n}",
    "SELECT {a}.{c} FROM {t} {a}, {t} {b}, {t} t33 WHERE {a}.{c}={b}.{c} AND {b}.{c}=t33.{c}{A}",
    "SELECT {c} FROM {t} WHERE {c} BETWEEN {d} AND {d} OR {c} LIKE {w}",
    "select distinct {c} from shop..{t} where {c} = {h} or {c} = {h}",
    "SELECT {C}\n  FROM {t}\n WHERE {c} = {v}\n   AND {c} {o} {v}\n ORDER BY {c}\n LIMIT {n}",
    "SELECT {c} FROM {t} WHERE {c} = (SELECT MAX({c}) FROM {t} WHERE {c} = {n}) AND {c} = {w}",
    "UPDATE {t} SET {c} = {w}, {c} = {d}, {c} = {n}, {c} = {w} WHERE {c} = {w} AND {c} = {n}",
    "SELECT `{c}`, `{c}` FROM `{t}` WHERE `{c}` = {w}{A}",
    "SELECT {c} * {d} AS gross FROM {t} WHERE {c}>={d} AND {c}<={d}",
    "CALL refresh_{t}({n}, {w}, {d})",
};

class Writer {
 public:
  std::string Statement() {
    text_.clear();
    first_alias_ = Below(10);
    Write(kForms[Below(kForms.size())]);
    return text_;
  }

 private:
  // Not std::uniform_int_distribution, since its results differ between libraries.
  std::size_t Below(std::size_t bound) { return random_() % bound; }
  template <typename T, std::size_t N>
  T OneOf(const std::array<T, N>& choices) {
    return choices[Below(N)];
  }

  void Write(std::string_view form) {
    for (std::size_t i = 0; i < form.size(); ++i) {
      if (form[i] != '{') {
        text_ += form[i];
        continue;
      }
      WritePart(form[i + 1]);
      i += 2;
    }
  }

  void WriteList(std::string_view item, std::size_t count) {
    const std::string_view separator = Below(3) == 0 ? "," : ", ";
    for (std::size_t i = 0; i < count; ++i) {
      if (i != 0) text_ += separator;
      Write(item);
    }
  }

  // Short numbers are more frequent than long ones.
  std::string Integer() {
    constexpr std::array<std::uint64_t, 4> kBounds{10, 1'000, 100'000, 10'000'000'000};
    return std::to_string(random_() % OneOf(kBounds));
  }

  void WritePart(char part) {
    switch (part) {
      case 't':
        text_ += OneOf(kTables);
        break;
      case 'c':
        text_ += OneOf(kColumns);
        break;
      case 'n':
        text_ += Integer();
        break;
      case 'd':
        text_ += std::to_string(Below(10'000)) + '.' + std::to_string(Below(100));
        break;
      case 'h': {
        text_ += "0x";
        constexpr std::string_view kHexDigits = "0123456789ABCDEF";
        for (std::size_t digits = 2 + Below(6); digits != 0; --digits) {
          text_ += kHexDigits[Below(kHexDigits.size())];
        }
        break;
      }
      case 'w':
        text_ += '\'';
        text_ += OneOf(kWords);
        text_ += '\'';
        break;
      case 'o':
        text_ += OneOf(kOperators);
        break;
      case 'v':
        WritePart("nnwd"[Below(4)]);
        break;
      case 'N':
        WriteList("{n}", 1 + Below(Below(8) == 0 ? 60 : 8));
        break;
      case 'C':
        WriteList("{c}", 1 + Below(7));
        break;
      case 'V':
        WriteList("{v}", 2 + Below(6));
        break;
      case 'R':
        for (std::size_t rows = 1 + Below(Below(6) == 0 ? 40 : 6); rows != 0; --rows) {
          Write(", ({V})");
        }
        break;
      case 'P':
        WriteList("@p1", 1 + Below(8));
        break;
      case 'A':
        for (std::size_t conditions = Below(4); conditions != 0; --conditions) {
          Write(" AND {c} {o} {v}");
        }
        break;
      default:  // a and b: two neighbouring numbers
        text_ += 't' + std::to_string(first_alias_ + (part == 'b' ? 1 : 0));
    }
  }

  std::mt19937_64 random_;  // NOLINT(bugprone-random-generator-seed): the same on every call
  std::string text_;
  std::size_t first_alias_ = 0;
};

}  // namespace

std::vector<std::string> VariedStatements(std::size_t count) {
  Writer writer;
  std::vector<std::string> statements;
  statements.reserve(count);
  while (statements.size() < count) statements.push_back(writer.Statement());
  return statements;
}

}  // namespace tarn::bench

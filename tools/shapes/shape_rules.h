#pragma once

#include <string>
#include <string_view>

#include "sql/dialect.h"

namespace tarn::host {

struct ShapeOptions {
  Dialect dialect = Dialect::kMysql;
  // Whether digits within names fold as well, for tables that are numbered:
  // orders_2024_11  ->  orders_?
  bool fold_digits = false;
};

// Makes the shape of a statement: a text that statements share which a person would call the same.
//
//   SELECT a FROM o WHERE b IN (1, 2) -- x   ->  SELECT a FROM o WHERE b in (?, ...)
//   insert into o values (1,'a'), (2,'b');   ->  INSERT into o VALUES (?, ...)
//
// The rules are in shape_rules.cpp, each a function with an example.
//
// Takes any bytes. Time is linear in the statement; memory is linear in the longest shape. Throws
// std::bad_alloc alone. An object serves one thread at a time.
class ShapeMaker {
 public:
  explicit ShapeMaker(const ShapeOptions& options) : options_(options) {}

  // The result is valid until the next call, which nothing of this one has an effect on.
  const std::string& MakeShape(std::string_view statement);

 private:
  ShapeOptions options_;
  std::string shape_;
};

}  // namespace tarn::host

#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "sql/dialect.h"

namespace tarn::host {

struct ShapeOptions {
  Dialect dialect = Dialect::kMysql;
  // Whether digits in names are folded as well, for tables that are numbered:
  // orders_2024_11  ->  orders_?
  bool fold_digits = false;
};

// Makes the shape of a statement: the text that it has in common with all statements that a person
// would call the same.
//
//   SELECT a FROM o WHERE b IN (1, 2) -- x   ->  SELECT a FROM o WHERE b in (?, ...)
//   insert into o values (1,'a'), (2,'b');   ->  INSERT into o VALUES (?, ...)
//
// A statement of nothing but comments has the shape "/* empty */". In shape_rules.cpp each rule is
// a function with an example.
//
// A statement may hold any bytes. Time is linear in the statement; memory is linear in the longest
// shape. Throws only std::bad_alloc. One thread at a time may use an object.
class ShapeMaker {
 public:
  explicit ShapeMaker(const ShapeOptions& options);
  ShapeMaker(const ShapeMaker&) = delete;
  ShapeMaker& operator=(const ShapeMaker&) = delete;
  ~ShapeMaker();

  // The result is valid until the next call. It depends on `statement` alone and not on earlier
  // calls.
  const std::string& MakeShape(std::string_view statement);

 private:
  class Writer;
  std::unique_ptr<Writer> writer_;
};

}  // namespace tarn::host

// Table-driven tests: each row has an `id` that names its test.
#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace tarn::test {

// For INSTANTIATE_TEST_SUITE_P. The ids of one table are distinct and of letters, digits and "_".
template <typename Row>
std::string RowName(const testing::TestParamInfo<Row>& info) {
  return info.param.id;
}

// Base of a row. Prints as its id, so that a test's name says nothing of bytes and addresses.
struct NamedRow {
  const char* id;

  friend std::ostream& operator<<(std::ostream& stream, const NamedRow& row) {
    return stream << row.id;
  }
};

}  // namespace tarn::test

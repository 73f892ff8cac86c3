// The product platform's reflection library, as far as the plug-in and its host use it.
#pragma once

#include <memory>
#include <string>

namespace refl {

namespace Enum {

// Types that a value can hold; the numbers are the library's.
enum DataTypeEnum : int {
  DATA_TYPE_NONE = 0,
  DATA_TYPE_STRING = 41,
};

}  // namespace Enum

// A value together with its type. Copies are deep. Not synchronised: one thread at a time may
// modify a value. Every operation but the destructor, moving and GetDataType may throw
// std::bad_alloc.
class CValue {
 public:
  // No value: DATA_TYPE_NONE.
  CValue();
  CValue(const CValue& other);
  CValue(CValue&& other) noexcept;
  CValue& operator=(const CValue& other);
  CValue& operator=(CValue&& other) noexcept;
  ~CValue();

  // Becomes a string value holding a copy of `text` (bytes), whatever it held before.
  void ReadFrom(const std::string& text);

  // Becomes an empty value of `type`; a value that is of that type already keeps its content.
  void ChangeValueTypeEnum(Enum::DataTypeEnum type);

  Enum::DataTypeEnum GetDataType() const noexcept;

  // The text of a string value, a copy; empty for a value of any other type.
  std::string ToString() const;

 private:
  struct Content;
  std::unique_ptr<Content> content_;
};

}  // namespace refl

#include "platform/c_value.h"

#include <utility>

namespace refl {

// A value without content is of type DATA_TYPE_NONE.
struct CValue::Content {
  Enum::DataTypeEnum type;
  std::string text;
};

CValue::CValue() = default;
CValue::CValue(const CValue& other)
    : content_(other.content_ ? std::make_unique<Content>(*other.content_) : nullptr) {}
CValue::CValue(CValue&& other) noexcept = default;
CValue& CValue::operator=(const CValue& other) { return *this = CValue(other); }
CValue& CValue::operator=(CValue&& other) noexcept = default;
CValue::~CValue() = default;

void CValue::ReadFrom(const std::string& text) {
  content_ = std::make_unique<Content>(Content{Enum::DATA_TYPE_STRING, text});
}

void CValue::ChangeValueTypeEnum(Enum::DataTypeEnum type) {
  if (type == GetDataType()) return;
  content_ = type == Enum::DATA_TYPE_NONE ? nullptr : std::make_unique<Content>(Content{type, {}});
}

Enum::DataTypeEnum CValue::GetDataType() const noexcept {
  return content_ ? content_->type : Enum::DATA_TYPE_NONE;
}

std::string CValue::ToString() const { return content_ ? content_->text : std::string(); }

}  // namespace refl

#pragma once
// Validation of the metadata items stored in a record: repeated fields,
// control characters and line breaks, ISO 8601 time stamps, languages, URLs
// and repeated list entries. Every finding is a "Tag" problem in the record.
#include <cstdint>
#include <string_view>

namespace sondrel {

class Tag;
class TagItem;

class FieldValidator {
  public:
    explicit FieldValidator(Tag& tag) : tag_(tag) {}
    void validateFields(bool fromMPEG4);

  private:
    Tag& tag_;
};

}  // namespace sondrel

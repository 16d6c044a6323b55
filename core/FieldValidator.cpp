#include "core/FieldValidator.h"

namespace sondrel {

// Placeholder: the field checks arrive with the validation work.
void FieldValidator::validateFields(bool) {}

}  // namespace sondrel

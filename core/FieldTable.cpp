#include "core/FieldTable.h"

namespace sondrel {

// Placeholder rows until the full table is entered.
const std::array<FieldRow, 222> kFieldTable = [] {
    std::array<FieldRow, 222> t{};
    for (auto& r : t) r = FieldRow{"", 0, nullptr, 0, 0};
    return t;
}();

}  // namespace sondrel

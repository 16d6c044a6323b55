#pragma once
// Parts of the program that need large libraries (the image decoders, the
// audio decoders) are built as modules and loaded on first use, so that a
// run that does not need them never loads those libraries: starting the
// program then costs what a small tool costs.
//
// A module "<name>" is the shared object <name>.so in the "lib/sondrel"
// folder next to the program's own folder (../lib/sondrel relative to the
// executable, the same in the build tree and once installed). Its one
// exported function, sondrel_module_<name>, takes nothing and returns a
// `const void*` (the exact type it is called through) pointing at the
// module's table of functions; each module's header defines that table.
#include <string>
#include <string_view>

namespace sondrel::module {

// The table of module `name`, loaded on the first call (from any thread).
// nullptr when it cannot be loaded; the first failure is reported once on
// the standard error, naming the path and the reason, and later calls
// return nullptr at once.
const void* table(std::string_view name);

// Builds that link a module's code directly (the tests) hand its table in
// before the first call to table().
void provide(std::string_view name, const void* table);

// Where module `name` is looked for.
std::string pathOf(std::string_view name);

}  // namespace sondrel::module

#pragma once
// Manual pages in roff (man(7) macros): sondrel(1) from the command line's
// own parser and problem-code table, and the short sondrel-gui(1).
#include <CLI/CLI.hpp>
#include <string>

namespace sondrel::cli {

std::string manPage(const CLI::App& app);
std::string guiManPage();

// Text made safe for a roff line: backslashes escaped, a leading '.' or '\''
// kept from reading as a request; with `literal`, hyphens become real
// hyphen-minus signs (option and code names are typed as printed).
std::string roff(const std::string& text, bool literal = false);

}  // namespace sondrel::cli

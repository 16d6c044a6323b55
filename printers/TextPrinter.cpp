#include "printers/TextPrinter.h"

#include "codes/ProblemCodes.h"
#include "core/LogWriter.h"
#include "core/Text.h"

namespace sondrel {

void TextPrinter::begin(std::string& out, const std::string& startTime) {
    out += LogWriter::firstLine(startTime);
}

void TextPrinter::fileHeading(std::string& out, const std::string& path, const std::string& modDate) {
    out += '\n';
    out += modDate;
    out += "  ";
    // One line whatever the name holds, and the exact bytes recoverable.
    out += text::escapePath(path);
    out += '\n';
}

void TextPrinter::problem(std::string& out, const LogError& e) {
    if (!colour_) {
        out += formatProblemLine(e);
        out += '\n';
        return;
    }
    // SGR colours: damage bold red, error red, warning yellow, note cyan.
    static constexpr const char* kTint[] = {"\033[36m", "\033[33m", "\033[31m", "\033[1;31m"};
    out += kTint[static_cast<size_t>(codes::codeAt(e.code).severity)];
    out += formatProblemLine(e);
    out += "\033[0m\n";
}

}  // namespace sondrel

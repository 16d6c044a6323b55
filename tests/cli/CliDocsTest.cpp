// The man pages and shell completions are generated from the option parser:
// every option the help shows and every problem code is documented, hidden
// options stay hidden, and man and bash accept the files.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>

#include "cli/ManPage.h"
#include "codes/ProblemCodes.h"
#include "tests/fixtures/CheckHelpers.h"

namespace sondrel::cli {
namespace {

using fixtures::TempDir;

// The real program: every option its help lists is in each generated
// document, man reads the pages without a warning, and bash completes.
TEST(CliDocs, ProgramDocumentsEveryOptionItShows) {
    TempDir d;
    auto run = [&](const std::string& args, const std::string& file) {
        EXPECT_TRUE(
            fixtures::run("'" SONDREL_CLI_PATH "' " + args + " >'" + d.path() + "/" + file + "' 2>/dev/null"))
            << args;
        return fixtures::readFile(d.path() + "/" + file);
    };
    const std::string help = run("--help", "help");
    EXPECT_EQ(help.find("--generate"), std::string::npos);
    std::set<std::string> names;
    const std::regex longOption("--[a-z0-9][a-z0-9-]*");
    for (auto it = std::sregex_iterator(help.begin(), help.end(), longOption); it != std::sregex_iterator();
         ++it)
        names.insert(it->str());
    EXPECT_GT(names.size(), 10u);
    const std::string man = run("--generate man", "sondrel.1"), bash = run("--generate bash", "sondrel.bash");
    const std::string zsh = run("--generate zsh", "_sondrel"), fish = run("--generate fish", "sondrel.fish");
    run("--generate man-gui", "sondrel-gui.1");
    for (const auto& name : names) {
        SCOPED_TRACE(name);
        EXPECT_NE(man.find("\\fB" + roff(name, true) + "\\fR"), std::string::npos);
        EXPECT_TRUE(bash.find(" " + name + " ") != std::string::npos ||
                    bash.find(" " + name + "'") != std::string::npos);
        EXPECT_NE(zsh.find(name), std::string::npos);
        EXPECT_NE(fish.find(" -l " + name.substr(2) + " "), std::string::npos);
    }
    for (const auto& row : codes::problemCodes()) {
        EXPECT_NE(man.find("\\fB" + roff(row.code, true) + "\\fR (" + codes::severityName(row.severity)),
                  std::string::npos)
            << row.code;
    }
    for (const std::string* script : {&bash, &zsh, &fish})
        EXPECT_NE(script->find(" id3.trailing-nil "), std::string::npos);

    const std::string script = d.path() + "/check.sh";
    std::ofstream(script)
        << "set -e\ncd '" << d.path() << "'\n"
        << "for p in sondrel.1 sondrel-gui.1; do\n"
           "  w=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l -Tutf8 -Z $p 2>&1 >/dev/null)\n"
           "  [ -z \"$w\" ] || { echo \"$p: $w\"; exit 1; }\n"
           "done\n"
           "source /usr/share/bash-completion/bash_completion\n"
           "source ./sondrel.bash\n"
           "COMP_WORDS=(sondrel --verify q); COMP_CWORD=2; COMP_LINE='sondrel --verify q'\n"
           "COMP_POINT=${#COMP_LINE}\n"
           "_sondrel sondrel q --verify\n"
           "[ \"${COMPREPLY[*]}\" = quick ] || { echo \"completion: ${COMPREPLY[*]}\"; exit 1; }\n";
    EXPECT_TRUE(fixtures::run("bash '" + script + "'"));
}

}  // namespace
}  // namespace sondrel::cli

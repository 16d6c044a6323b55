// The man pages and shell completions are generated from the option parser:
// groups, hidden options, value names and fixed values reach them, every
// option and problem code is documented, and man and bash accept the files.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>

#include "cli/Completions.h"
#include "cli/ManPage.h"
#include "cli/OptionDocs.h"
#include "codes/ProblemCodes.h"
#include "tests/fixtures/CheckHelpers.h"

namespace sondrel::cli {
namespace {

using fixtures::TempDir;

struct Sample {
    CLI::App app{"Checks things.", "sondrel"};
    bool flag = false;
    std::string log, tier, format, hidden;
    std::vector<std::string> paths, options;

    Sample() {
        app.add_flag("-q,--quiet", flag, "Say nothing");
        app.add_option("--log", log, "Log file")->type_name("FILE");
        app.add_option("--verify", tier, "Verify")->type_name("off|quick|full");
        app.add_option("--option", options, "Override")
            ->type_name("KEY=VALUE")
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
        app.add_option("--ignore", log, "Codes")->type_name("CODE[,CODE...]");
        app.add_option("--secret", hidden, "Not shown")->group("");
        auto* output = app.add_option_group("Output", "Where it goes");
        output->add_option("--format", format, ".starts with a dot \\ and a backslash")
            ->check(CLI::IsMember({"text", "json"}));
        app.add_option("PATH", paths, "Inputs")->type_name("");
    }
};

TEST(CliDocs, ManPageHasEveryOptionGroupAndCodeEscaped) {
    Sample s;
    const std::string page = manPage(s.app);
    std::set<std::string> names;  // the option group's own help flag is not repeated
    for (const auto& o : documentedOptions(s.app)) EXPECT_TRUE(names.insert(o.longNames.at(0)).second);
    EXPECT_EQ(positionalName(s.app), "PATH");
    for (const char* text : {"\\fB\\-q\\fR, \\fB\\-\\-quiet\\fR", "\\fB\\-\\-log\\fR \\fIFILE\\fR",
                             "[\\fB\\-\\-option\\fR \\fIKEY=VALUE\\fR]...", ".SS Output",
                             "\\&.starts with a dot \\e and a backslash. One of \\fBtext\\fR, \\fBjson\\fR."})
        EXPECT_NE(page.find(text), std::string::npos) << text;
    EXPECT_EQ(page.find("secret"), std::string::npos);
    for (const auto& row : codes::problemCodes())
        EXPECT_NE(page.find("\\fB" + roff(row.code, true) + "\\fR (" + codes::severityName(row.severity)),
                  std::string::npos)
            << row.code;
}

TEST(CliDocs, CompletionsOfferOptionsValuesAndCodes) {
    Sample s;
    const std::string bash = bashCompletion(s.app), zsh = zshCompletion(s.app), fish = fishCompletion(s.app);
    EXPECT_NE(bash.find("--log)\n            _filedir"), std::string::npos);
    EXPECT_NE(bash.find("compgen -W 'text json'"), std::string::npos);
    EXPECT_NE(zsh.find("'(-q --quiet)--quiet[Say nothing]' \\"), std::string::npos);
    EXPECT_NE(zsh.find("'*--option=[Override]:KEY=VALUE: ' \\"), std::string::npos);
    EXPECT_NE(zsh.find("'(--verify)--verify=[Verify]:off|quick|full:(off quick full)' \\"),
              std::string::npos);
    EXPECT_NE(fish.find("complete -c sondrel -s q -l quiet -d 'Say nothing'"), std::string::npos);
    EXPECT_NE(fish.find("complete -c sondrel -l log -r -F -d 'Log file'"), std::string::npos);
    for (const std::string* script : {&bash, &zsh, &fish}) {
        EXPECT_EQ(script->find("secret"), std::string::npos);
        EXPECT_NE(script->find(" id3.trailing-nil "), std::string::npos);
    }
}

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

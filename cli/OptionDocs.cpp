#include "cli/OptionDocs.h"

#include <cstdio>
#include <set>

#include "cli/Completions.h"
#include "cli/ManPage.h"

namespace sondrel::cli {

namespace {

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> out;
    size_t start = 0;
    for (;;) {
        const size_t end = text.find(separator, start);
        out.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
        if (end == std::string::npos) return out;
        start = end + 1;
    }
}

// A fixed set of values shows either in the value name the option was given
// ("off|quick|full") or in the description CLI11's IsMember check adds to
// it ("TEXT:{off,quick,full}").
std::vector<std::string> choicesOf(const std::string& typeName) {
    const size_t open = typeName.find(":{");
    if (open != std::string::npos && typeName.back() == '}')
        return split(typeName.substr(open + 2, typeName.size() - open - 3), ',');
    if (typeName.find('|') != std::string::npos && typeName.find_first_of("[]. ") == std::string::npos)
        return split(typeName, '|');
    return {};
}

void collect(const CLI::App& app, const std::string& groupOverride, std::set<std::string>& seen,
             std::vector<DocOption>& out) {
    for (const CLI::Option* option : app.get_options()) {
        if (!option->nonpositional()) continue;
        const std::string group =
            groupOverride.empty() || option->get_group() != "Options" ? option->get_group() : groupOverride;
        if (group.empty()) continue;
        DocOption doc;
        for (const auto& name : option->get_snames()) doc.shortNames.push_back(name);
        for (const auto& name : option->get_lnames()) doc.longNames.push_back(name);
        // An option group carries its own copy of the help flag.
        const std::string key = doc.longNames.empty() ? doc.shortNames.at(0) : doc.longNames.front();
        if (!seen.insert(key).second) continue;
        doc.takesValue = option->get_expected_max() > 0;
        doc.repeatable = option->get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll ||
                         option->get_expected_max() > 1;
        if (doc.takesValue) {
            const std::string typeName = option->get_type_name();
            doc.choices = choicesOf(typeName);
            const size_t colon = typeName.find(":{");
            doc.valueName = colon == std::string::npos ? typeName : typeName.substr(0, colon);
            if (doc.valueName.empty()) doc.valueName = "VALUE";
        }
        doc.description = option->get_description();
        doc.group = group;
        out.push_back(std::move(doc));
    }
    for (const CLI::App* sub : app.get_subcommands([](const CLI::App* a) { return a->get_name().empty(); }))
        if (!sub->get_group().empty()) collect(*sub, sub->get_group(), seen, out);
}

}  // namespace

DocOption::Value DocOption::valueKind() const {
    if (!takesValue) return Value::None;
    if (!choices.empty()) return Value::Choice;
    if (valueName.rfind("CODE", 0) == 0) return Value::Code;
    for (const char* word : {"FILE", "PATH", "DIR", "FOLDER"})
        if (valueName.find(word) != std::string::npos) return Value::Path;
    return Value::Other;
}

std::vector<DocOption> documentedOptions(const CLI::App& app) {
    std::vector<DocOption> out;
    std::set<std::string> seen;
    collect(app, "", seen, out);
    return out;
}

std::string positionalName(const CLI::App& app) {
    for (const CLI::Option* option : app.get_options())
        if (option->get_positional() && !option->nonpositional()) return option->get_name(true);
    return "";
}

void addGenerateOption(CLI::App& app, std::string& what) {
    app.add_option("--generate", what, "Write a man page or a shell completion script")
        ->check(CLI::IsMember({"man", "man-gui", "bash", "zsh", "fish"}))
        ->group("");
}

int generate(const CLI::App& app, const std::string& what) {
    std::string text;
    if (what == "man")
        text = manPage(app);
    else if (what == "man-gui")
        text = guiManPage();
    else if (what == "bash")
        text = bashCompletion(app);
    else if (what == "zsh")
        text = zshCompletion(app);
    else if (what == "fish")
        text = fishCompletion(app);
    else
        return 2;
    std::fwrite(text.data(), 1, text.size(), stdout);
    return std::fflush(stdout) == 0 && !std::ferror(stdout) ? 0 : 2;
}

}  // namespace sondrel::cli

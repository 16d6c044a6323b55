// Field validation on arbitrary texts: the input is cut at zero bytes into
// values that are stored as single fields and list entries, then validated.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "core/FieldTable.h"
#include "core/Settings.h"
#include "core/Tag.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const sondrel::Settings settings = [] {
        sondrel::Settings s;
        s.overrideValue("LogDups", "1");
        return s;
    }();
    std::vector<std::string> parts(1);
    for (size_t i = 0; i < size; ++i) {
        if (data[i] == 0)
            parts.emplace_back();
        else
            parts.back().push_back(char(data[i]));
    }
    sondrel::Tag tag("/fuzz/a.mp3", settings, sondrel::Tag::NoAnalysis{});
    // The first byte of each part picks the field; the rest is its text.
    for (size_t i = 0; i < parts.size(); ++i) {
        const std::string& p = parts[i];
        const int64_t index = p.empty() ? 0 : uint8_t(p[0]) % (sondrel::kTerminatorRow + 1);
        std::string text = p.empty() ? std::string() : p.substr(1);
        if (index >= sondrel::kFirstListField)
            tag.setimulvalue(index, 0x54585858, text, text.substr(0, text.size() / 2), text.substr(0, 3), i);
        else
            tag.setivalue(index, 0x54495432, text, i);
    }
    tag.validateFields(size % 2 == 0);
    return 0;
}

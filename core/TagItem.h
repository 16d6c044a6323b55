#pragma once
// One metadata field found in a file: which field-table row, which frame or
// atom carried it, its text, how many times it was met and where first.
// List fields keep their entries as children.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace sondrel {

class TagItem {
  public:
    TagItem() = default;
    TagItem(int64_t tagIndex, uint32_t header, std::optional<std::string> value, uint64_t offset)
        : tagIndex(tagIndex), fourCC(header), value(std::move(value)), offset(offset) {}
    TagItem(int64_t tagIndex, uint32_t header, std::optional<std::string> value,
            std::optional<std::string> desc, std::optional<std::string> lang, uint64_t offset)
        : tagIndex(tagIndex),
          fourCC(header),
          value(std::move(value)),
          lang(std::move(lang)),
          desc(std::move(desc)),
          offset(offset) {}

    void bumpCount() { ++count; }
    void addChild(TagItem child) {
        if (!items) {
            items.emplace();
            items->reserve(2);
        }
        items->push_back(std::move(child));
    }

    int64_t tagIndex = 0;
    uint32_t fourCC = 0;
    std::optional<std::string> value;
    std::optional<std::vector<TagItem>> items;
    uint64_t count = 1;
    uint64_t droppedChildren = 0;  // list entries past the per-field cap
    std::optional<std::string> lang;
    std::optional<std::string> desc;
    uint64_t offset = 0;
};

}  // namespace sondrel

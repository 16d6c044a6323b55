#include "formats/mp4/M4ATag.h"

namespace sondrel {

// Not yet checked: the file is only opened and closed.
M4ATag::M4ATag(const std::string& /*path*/, Tag& tag) {
    uint64_t size = 0;
    if (auto handle = tag.setupFile(size)) handle->closeTheFile();
}

}  // namespace sondrel

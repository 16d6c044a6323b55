#include "formats/chunked/DffTag.h"

namespace sondrel {

// Not yet checked: the file is only opened and closed.
DffTag::DffTag(const std::string& /*path*/, Tag& tag) {
    uint64_t size = 0;
    if (auto handle = tag.setupFile(size)) handle->closeTheFile();
}

}  // namespace sondrel

#include "formats/flac_ogg/FlacComment.h"

#include <utility>

namespace sondrel {

FlacComment::FlacComment(std::string name, uint64_t offset) : name_(std::move(name)), offset_(offset) {}

}  // namespace sondrel

#pragma once
// The name of one Vorbis comment and where its text stood, for code that
// wants to refer back to a comment after the block has been read.
#include <cstdint>
#include <string>

namespace sondrel {

class FlacComment {
  public:
    FlacComment(std::string name, uint64_t offset);

    const std::string& name() const { return name_; }
    uint64_t offset() const { return offset_; }

  private:
    std::string name_;
    uint64_t offset_ = 0;
};

}  // namespace sondrel

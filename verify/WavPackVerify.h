#pragma once
#include "verify/Verify.h"

namespace sondrel::verify {

// Walks every WavPack block from the first to the end of the file: header,
// block checksum, the sequence of block indexes and the sample total.
void verifyWavPack(Tag& tag, Tier tier, Findings& findings);

}  // namespace sondrel::verify

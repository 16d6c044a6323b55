#pragma once
#include "verify/Verify.h"

namespace sondrel::verify {

// Follows every track's sample table (chunk offsets, samples per chunk and
// sample sizes): each chunk must lie inside the file and inside a media data
// box, and the chunks must hold as many samples as the size table lists.
void verifyMp4(Tag& tag, Tier tier, Findings& findings);

}  // namespace sondrel::verify

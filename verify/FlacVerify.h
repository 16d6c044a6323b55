#pragma once
#include "verify/Verify.h"

namespace sondrel::verify {

// Quick: walks every FLAC frame from the first to the end of the file,
// checking each header's CRC-8, each frame's CRC-16, the frame sequence and
// the sample total. Full: also decodes every frame with libFLAC and checks the
// decoded audio against the MD5 signature.
void verifyFlac(Tag& tag, Tier tier, Findings& findings);

}  // namespace sondrel::verify

#pragma once
#include "verify/Verify.h"

namespace sondrel::verify {

// Follows the MPEG audio frames from header to header over the audio range
// (the file without its ID3v2, APE and ID3v1 tags), reporting lost sync, a
// cut last frame and data after the last frame; compares the frame and byte
// counts with the Xing/Info or VBRI header and checks the LAME tag's CRCs.
void verifyMpeg(Tag& tag, Tier tier, Findings& findings);

}  // namespace sondrel::verify

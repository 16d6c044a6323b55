#pragma once
#include "verify/Verify.h"

namespace sondrel::verify {

// Monkey's Audio: the descriptor's byte counts against the file, the seek
// table against the frame count and the audio data (files of version 3.98
// and later; older headers carry no descriptor); the full tier decodes
// every frame.
void verifyApe(Tag& tag, Tier tier, Findings& findings);

}  // namespace sondrel::verify

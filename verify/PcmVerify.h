#pragma once
#include "verify/Verify.h"

namespace sondrel::verify {

// Uncompressed audio carries no checksums; what can be checked without
// reading the samples is that the sound data is a whole number of sample
// frames and as many as the header declares (the WAV 'fact' or RF64 'ds64'
// count, the AIFF 'COMM' count, the DSF sample count).
void verifyWav(Tag& tag, Findings& findings);
void verifyAiff(Tag& tag, Findings& findings);
void verifyDsf(Tag& tag, Findings& findings);
// DFF: plain DSD sound data present as its chunk declares and a whole
// number of one-byte-per-channel frames; DST sound holding as many frames
// as its frame information declares.
void verifyDff(Tag& tag, Findings& findings);

}  // namespace sondrel::verify

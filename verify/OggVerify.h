#pragma once
#include "verify/Verify.h"

namespace sondrel::verify {

// Walks every Ogg page to the end of the file, resynchronising after damage:
// page CRCs, the page sequence and granule positions of the first logical
// stream, its end-of-stream page, and bytes after the last page. Chained
// streams (a new beginning-of-stream page after an end) are followed.
void verifyOgg(Tag& tag, Tier tier, Findings& findings);

}  // namespace sondrel::verify

#pragma once
// sondrel merge: joins the JSON Lines of the shards of one run (--shard K/N)
// into the text log or the JSON Lines that one run over everything writes.

namespace sondrel {

// The arguments after "sondrel": argv[0] is "merge". Returns the exit status.
int runMerge(int argc, char** argv);

}  // namespace sondrel

#pragma once
// The registry of checkers: which checker analyses each format of the core's
// format table. Every program that analyses files calls installCheckers()
// once at its start, before the first file.
namespace sondrel {

void installCheckers();

}  // namespace sondrel

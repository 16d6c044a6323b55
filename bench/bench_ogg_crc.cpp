// Throughput of the Ogg page CRC: the production path (carry-less
// multiplication folding where the processor has it), the sliced tables it
// falls back to, and the byte-at-a-time table reference, over page-sized and
// large buffers.
#include <benchmark/benchmark.h>

#include <random>

#include "core/Bytes.h"
#include "formats/flac_ogg/OggCRC.h"

namespace {

sondrel::Bytes randomBytes(size_t n) {
    std::mt19937 rng(42);
    sondrel::Bytes b(n);
    for (auto& v : b) v = uint8_t(rng());
    return b;
}

template <uint32_t (*Update)(uint32_t, const uint8_t*, size_t)>
void crc(benchmark::State& state) {
    const auto data = randomBytes(size_t(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(Update(0, data.data(), data.size()));
    state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0));
}

}  // namespace

// 4 KiB (a typical audio page), 64 KiB (the largest page body), 16 MiB.
BENCHMARK(crc<sondrel::oggcrc::update>)->Name("OggCRC/fastest")->Arg(4096)->Arg(65025)->Arg(16 << 20);
BENCHMARK(crc<sondrel::oggcrc::updateSliced>)->Name("OggCRC/sliced")->Arg(4096)->Arg(65025)->Arg(16 << 20);
BENCHMARK(crc<sondrel::oggcrc::updateBytewise>)
    ->Name("OggCRC/bytewise")
    ->Arg(4096)
    ->Arg(65025)
    ->Arg(16 << 20);

// The program's side of the audio verification: the "Verify" option, and the
// verifier installed into the record, which loads the decoders module the
// first time a file is to be verified.
#include "core/LogError.h"
#include "core/Module.h"
#include "core/Settings.h"
#include "core/Tag.h"
#include "verify/Module.h"
#include "verify/Verify.h"

namespace sondrel::verify {

namespace {

constexpr const char* kNotLoaded = "Audio not verified: the audio decoders could not be loaded";

const ModuleTable* moduleTable() {
    static const ModuleTable* const loaded = [] {
        auto* table = static_cast<const ModuleTable*>(module::table(kModule));
        return table && table->size == sizeof(ModuleTable) ? table : nullptr;
    }();
    return loaded;
}

void verifyThroughModule(Tag& tag, Format format) {
    auto tier = parseTier(tag.settings().stringFromKey("Verify"));
    if (!tier || *tier == Tier::Off) return;
    if (const ModuleTable* table = moduleTable())
        table->verifyFile(tag, format);
    else
        tag.logError(kAudio, 0, kNotLoaded);
}

}  // namespace

std::optional<Tier> parseTier(std::string_view text) {
    if (text == "off") return Tier::Off;
    if (text == "quick") return Tier::Quick;
    if (text == "full") return Tier::Full;
    return std::nullopt;
}

std::string libraryVersions() {
    const ModuleTable* table = moduleTable();
    return table ? table->libraryVersions() : std::string("decoders not loaded\n");
}

void install() {
    setAudioVerifier(&verifyThroughModule);
}

}  // namespace sondrel::verify

#include "verify/Module.h"

#include "verify/Verify.h"

extern "C" __attribute__((visibility("default"))) const void* sondrel_module_sondrel_decoders() {
    static const sondrel::verify::ModuleTable table{sizeof(sondrel::verify::ModuleTable),
                                                    &sondrel::verify::verifyFile,
                                                    &sondrel::verify::decoderLibraryVersions};
    return &table;
}

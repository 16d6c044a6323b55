// The unit tests analyse files through the same checker registry as the
// programs.
#include <gtest/gtest.h>

#include "core/ImageDecoders.h"
#include "core/Module.h"
#include "formats/Checkers.h"
#include "verify/Module.h"

int main(int argc, char** argv) {
    sondrel::installCheckers();
    // The modules' code is linked into the tests rather than loaded.
    sondrel::module::provide(sondrel::ImageValidator::kDecodersModule, sondrel_module_sondrel_images());
    sondrel::module::provide(sondrel::ImageValidator::kModernDecodersModule,
                             sondrel_module_sondrel_images_modern());
    sondrel::module::provide(sondrel::verify::kModule, sondrel_module_sondrel_decoders());
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

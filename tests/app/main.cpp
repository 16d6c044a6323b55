// The desktop program's tests run without a display.
#include <QApplication>

#include <gtest/gtest.h>

#include "formats/Checkers.h"

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    sondrel::installCheckers();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

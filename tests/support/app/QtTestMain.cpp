// The main of the application's tests: GoogleTest inside a Qt application object, so that the
// model's queued calls, timers and worker results are delivered while a test waits for them.
#include <gtest/gtest.h>

#ifdef OMBRELO_TEST_WIDGETS
#include <QApplication>
using TestApplication = QApplication;
#else
#include <QGuiApplication>
using TestApplication = QGuiApplication;
#endif

int main(int argc, char** argv)
{
    // No window ever appears on a screen: the tests run on machines without a display.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    TestApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

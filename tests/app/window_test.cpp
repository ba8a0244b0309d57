// The main window and the log window under the offscreen platform.
#include <gtest/gtest.h>

#include <QApplication>
#include <QPixmap>
#include <QSignalSpy>
#include <QStandardPaths>

#include <memory>
#include <thread>

#include "app_messages.h"
#include "box_watcher.h"
#include "command_line.h"
#include "kelvane.h"
#include "mysettings.h"
#include "offscreen_app.h"
#include "piv_enums.h"
#include "piv_messages.h"
#include "qlogbuffer.h"

namespace {

class Gui : public ::testing::Test {
protected:
    static void SetUpTestSuite() { EnsureOffscreenApplication(); }
};

}  // namespace

// Messages of worker threads are queued to the window.
TEST_F(Gui, LibraryAndToolkitMessagesReachTheLogWindow) {
    QLogBuffer log(0, QStringLiteral("Kelvane2C"));
    InstallMessageRouting(&log);
    ShowStatus("evaluated %d vectors", 225);
    qWarning("toolkit says %d", 1);
    std::thread([] { ShowStatus("from a worker"); }).join();
    QCoreApplication::processEvents();
    InstallMessageRouting(nullptr);
    ShowStatus("after the window is gone");  // back on stderr, not in the window
    EXPECT_EQ(log.text(),
              QStringLiteral("evaluated 225 vectors\nWarning: toolkit says 1\nfrom a worker"));
}

TEST_F(Gui, MessagesAreDroppedWhenTheLogWindowIsGone) {
    auto* log = new QLogBuffer(0, QStringLiteral("Kelvane2C"));
    InstallMessageRouting(log);
    delete log;
    EXPECT_EQ(MessageLogWindow(), nullptr);
    ShowStatus("nobody listens");  // must not touch the deleted window
    InstallMessageRouting(nullptr);
}

TEST_F(Gui, CommandLineOptionsChooseTheAnalysisMode) {
    struct Case {
        const char* option;
        int mode;
    };
    const Case cases[] = {{"-auto", PIV::ANALYSIS_AUTO_CORRELATION},
                          {"-speckle", PIV::ANALYSIS_SPECKLE},
                          {"-cross", PIV::ANALYSIS_CROSS_CORRELATION}};
    MySettings settings(QStringLiteral("SODREL"), QStringLiteral("Kelvane3.6"));
    for (const Case& c : cases) {
        CommandLine cl;
        const char* args[] = {"kelvane2c", c.option, "C:\\run\\a.tif"};
        cl.scan(3, args);
        SetApplicationCommandLine(&cl);
        Kelvane window(true, false, &settings, nullptr);
        EXPECT_EQ(window.analysisMode(), c.mode) << c.option;
        EXPECT_EQ(window.commandLineFile(), QStringLiteral("C:/run/a.tif"));
        SetApplicationCommandLine(nullptr);
    }
}

// The logo is linked into the program; closing the window announces the exit.
TEST_F(Gui, TheMainWindowShowsTheLogoAndAnnouncesItsExit) {
    MySettings settings(QStringLiteral("SODREL"), QStringLiteral("Kelvane3.6"));
    Kelvane window(true, false, &settings, nullptr);
    const QPixmap logo(Kelvane::logoPath());
    EXPECT_EQ(logo.width(), 480);
    EXPECT_EQ(logo.height(), 240);
    QSignalSpy spy(&window, &Kelvane::signalKelvaneExiting);
    window.show();
    BoxWatcher discard("&Discard changes");
    window.close();
    EXPECT_EQ(spy.count(), 1);
}

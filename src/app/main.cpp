// Start of the program: command line, log window, settings, splash, main window.
#include <QApplication>
#include <QDir>
#include <QPixmap>
#include <QPointer>
#include <QSplashScreen>

#include <cstdio>

#include "app_messages.h"
#include "command_line.h"
#include "kelvane.h"
#include "mysettings.h"
#include "piv_messages.h"
#include "piv_util.h"
#include "qlogbuffer.h"

namespace {

const int kVersionMajor = 3;
const int kVersionMinor = 6;
const int kVersionPatch = 0;

// -help and -info answer on the console and need no display, so they are
// served before the application object (which would want one) exists.
bool answerWithoutWindow(const CommandLine& cl) {
    if (cl.help()) {
        std::printf("%s\n", CommandLine::helpText());
        return true;
    }
    if (cl.info()) {
        std::printf("Kelvane2C %d.%d.%d\n%s\n%s\nHave %d cores available\n", kVersionMajor,
                    kVersionMinor, kVersionPatch, PIV::LibraryVersionLine(), PIV::SoftwareName(),
                    PIV::MaxThreads());
        return true;
    }
    return false;
}

}  // namespace

int main(int argc, char* argv[]) {
    {
        CommandLine early;
        early.scan(argc, argv);
        if (answerWithoutWindow(early)) return 0;
    }

    QApplication app(argc, argv);
    SetDebugLevel(CommandLine::earlyDebugLevel(argc, argv));
    QApplication::addLibraryPath(QApplication::applicationDirPath() + QStringLiteral("/plugins"));

    CommandLine commandLine;
    commandLine.init();
    commandLine.scan(argc, argv);
    SetApplicationCommandLine(&commandLine);

    QApplication::setApplicationName(QStringLiteral("Kelvane2C"));
    QApplication::setApplicationVersion(
        QStringLiteral("%1.%2.%3").arg(kVersionMajor).arg(kVersionMinor).arg(kVersionPatch));

    QPointer<QLogBuffer> log = new QLogBuffer(DebugLevel(), QApplication::applicationName());
    log->setAttribute(Qt::WA_DeleteOnClose, false);
    InstallMessageRouting(log);

    MySettings settings(QStringLiteral("SODREL"), QStringLiteral("Kelvane3.%1").arg(kVersionMinor));
    bool showSplash = true;
    settings.serializeBool(MySettings::READ, QStringLiteral("/Prefs/ShowSplash"), &showSplash);

    DebugPrintExt(2, "Have %d cores available", PIV::MaxThreads());

    QSplashScreen* splash = nullptr;
    if (showSplash) {
        splash =
            new QSplashScreen(QPixmap(QStringLiteral(":/logos/images/logos/kelvane3-5-logo.png")));
        splash->show();
        app.processEvents();
    }
    DebugPrintExt(2, "Launching main window");
    Kelvane window(true, false, &settings, splash);
    window.show();
    if (splash) {
        splash->finish(&window);
        splash->deleteLater();
    }

    QObject::connect(&window, SIGNAL(signalKelvaneExiting()), log, SLOT(close()));
    QObject::connect(&app, SIGNAL(lastWindowClosed()), &app, SLOT(quit()));
    const int result = app.exec();

    InstallMessageRouting(nullptr);
    SetApplicationCommandLine(nullptr);
    delete log;
    return result;
}

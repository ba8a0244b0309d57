#include "kelvane.h"

#include <QApplication>
#include <QCloseEvent>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QPixmap>
#include <QSplashScreen>
#include <QStatusBar>

#include "app_messages.h"
#include "command_line.h"
#include "kelvanedata.h"
#include "kelvanedataobject.h"
#include "piv_enums.h"
#include "piv_messages.h"
#include "piv_util.h"
#include "qlogbuffer.h"

// The resources live in a static library, whose registration the linker
// would drop unless something refers to it.
static void initResources() {
    Q_INIT_RESOURCE(kelvane);
}

QString Kelvane::logoPath() {
    static const bool registered = (initResources(), true);
    (void)registered;
    return QStringLiteral(":/logos/images/logos/kelvane3-5-logo.png");
}

Kelvane::Kelvane(bool /*isMainInstance*/, bool /*unused*/, MySettings* settings,
                 QSplashScreen* splash, QWidget* parent, Qt::WindowFlags flags)
    : QMainWindow(parent, flags),
      m_settings(settings),
      m_dataObject(new KelvaneDataObject(&m_state, settings, this)),
      m_data(new KelvaneData(m_dataObject, this)) {
    connect(m_dataObject, &KelvaneDataObject::signalChangedAnalysisMode, this,
            &Kelvane::signalChangedAnalysisMode);
    if (splash)
        splash->showMessage(tr("Configuring UI..."), Qt::AlignBottom | Qt::AlignLeft, Qt::white);
    setWindowTitle(QApplication::applicationName());
    auto* canvas = new QLabel(this);
    canvas->setPixmap(QPixmap(logoPath()));
    canvas->setAlignment(Qt::AlignCenter);
    setCentralWidget(canvas);
    createMenus();
    processCommandLine();
    if (splash)
        splash->showMessage(tr("Now we're finally ready for some PIV!"),
                            Qt::AlignBottom | Qt::AlignLeft, Qt::white);
    statusBar()->showMessage(QString());
    resize(1024, 768);
    m_state.setProcessingFlag(false);
}

void Kelvane::createMenus() {
    QMenu* file = menuBar()->addMenu(tr("&File"));
    file->addAction(tr("&Quit"), this, &QWidget::close, QKeySequence::Quit);
    QMenu* window = menuBar()->addMenu(tr("&Window"));
    window->addAction(tr("Show &log window"), this, [] {
        if (QLogBuffer* log = MessageLogWindow()) {
            log->show();
            log->raise();
        }
    });
    QMenu* help = menuBar()->addMenu(tr("&Help"));
    help->addAction(tr("&About"), this, [this] {
        QMessageBox::about(
            this, tr("About %1").arg(QApplication::applicationName()),
            QStringLiteral("%1 %2\n%3")
                .arg(QApplication::applicationName(), QApplication::applicationVersion(),
                     QString::fromLatin1(PIV::LibraryVersionLine())));
    });
}

int Kelvane::analysisMode() const {
    return m_dataObject->analysisMode();
}

void Kelvane::setAnalysisMode(int mode) {
    m_dataObject->setAnalysisMode(mode);
}

void Kelvane::processCommandLine() {
    const CommandLine* cl = ApplicationCommandLine();
    if (!cl) return;
    if (cl->help()) ShowStatus("%s", CommandLine::helpText());
    for (const std::string& option : cl->options()) {
        if (option == "auto")
            setAnalysisMode(PIV::ANALYSIS_AUTO_CORRELATION);
        else if (option == "cross")
            setAnalysisMode(PIV::ANALYSIS_CROSS_CORRELATION);
        else if (option == "speckle" || option == "bos")
            setAnalysisMode(PIV::ANALYSIS_SPECKLE);
    }
    if (!cl->files().empty()) m_commandLineFile = QString::fromStdString(cl->files().back());
}

void Kelvane::closeEvent(QCloseEvent* event) {
    emit signalKelvaneExiting();
    event->accept();
}

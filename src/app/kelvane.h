// Kelvane: the main window, the frame of a session: menus, tool bars, the
// status line, the scene pages, the start sequence and the exit prompt.
#pragma once

#include <QAction>
#include <QHash>
#include <QMainWindow>
#include <QSet>
#include <QString>

#include "kelvanestate.h"
#include "mysettings.h"
#include "piv_simd_level.h"
#include "prefsdlg.h"

class KelvaneData;
class MaskEdit;
class KelvaneDataObject;
class KelvaneDataView;
class PTVmodule;
class QAction;
class QComboBox;
class QLabel;
class QLogBuffer;
class QMenu;
class QPrinter;
class QSplashScreen;
class QStackedWidget;
class QTimer;
class QToolBar;
class RecentFiles;

class Kelvane : public QMainWindow {
    Q_OBJECT
public:
    Kelvane(bool isMainInstance, bool unused, MySettings* settings, QSplashScreen* splash,
            QWidget* parent = nullptr, Qt::WindowFlags flags = Qt::WindowFlags());
    ~Kelvane() override;

    // The splash and canvas image, from the program's resources.
    static QString logoPath();

    // An image, a data set or a parameter file, by what the file holds.
    bool loadFile(const QString& path);
    // A window beside this one, 32 px off it; it closes with this one.
    Kelvane* openNewWindow(const QString& file);
    void setKelvaneMode(KelvaneMode mode, bool syncSelector);
    void setAnalysisMode(int mode);
    int analysisMode() const;
    void setViewOfData(int view);
    void updateStatusLabel();
    void updateFileFilters();
    // Analysis mode options, then the last file argument is loaded.
    void processCommandLine();
    void registryIO(MySettings::AccessMode mode);

    KelvaneDataObject* dataObject() const { return m_dataObject; }
    KelvaneData* data() const { return m_data; }
    KelvaneDataView* dataView() const { return m_dataView; }
    PTVmodule* ptvModule() const { return m_ptvModule; }
    RecentFiles* recentImages() const { return m_recentImages; }
    RecentFiles* recentFiles() const { return m_recentFiles; }
    PrefsDlg* prefsDlg() const { return m_prefsDlg; }
    MaskEdit* maskEdit() const { return m_maskEdit; }
    QLogBuffer* logBuffer() const { return m_logBuffer; }
    QLabel* statusLabel() const { return m_statusLabel; }
    QComboBox* modeSelector() const { return m_modeSelector; }
    QComboBox* viewSelector() const { return m_viewSelector; }
    // The action of that object name ("actionFileOpen"), null if none.
    QAction* action(const QString& name) const { return m_actions.value(name); }
    // The last file argument of the command line, empty if none.
    QString commandLineFile() const { return m_commandLineFile; }
    // The image file patterns of an extension mask, joined by blanks.
    static QString imageFilterList(int mask);
    // Connects an action that starts disabled (a view action) to its
    // receiver; from then on slotUpdateUI enables it by its rule.
    template <class Receiver, class Slot>
    void bindAction(const QString& name, const Receiver* receiver, Slot slot) {
        if (QAction* a = action(name)) bind(a, receiver, slot);
    }

public slots:
    // The one place where actions are enabled and checked from the state.
    void slotUpdateUI();
    void slotUpdateImage(int view);
    void slotShowMaskEditor();
    void slotUpdateData(int view);
    void slotSetViewOfData(int view) { setViewOfData(view); }
    void slotPreferences();
    void slotOpenNewWindow() { openNewWindow(QString()); }
    void slotShowOptions();
    void slotAbout();
    void slotAboutQt();
    void slotShowLogBuffer();
    void slotModeCrossCorrelation() { setAnalysisMode(1); }
    void slotModeAutoCorrelation() { setAnalysisMode(2); }
    void slotModeSpeckleCorrelation() { setAnalysisMode(3); }
    void slotSetDefaultMode() { setKelvaneMode(MODE_DATA, true); }
    void slotPrint();
    void slotExportPlot() { exportPlotAs(false); }
    void slotExportPlotAsPDF() { exportPlotAs(true); }
    void slotExportCurrentView();

signals:
    void signalKelvaneExiting();
    void signalChangedAnalysisMode();

protected:
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void createActions();
    void createMenusAndToolBars();
    void createSelectors();
    void connectActions();
    void removeUnofferedParts();
    void applyToolBarStyle();
    void showSplash(const QString& text);
    // Asks for a file, then writes the plot as a bitmap of the chosen format or as PDF.
    void exportPlotAs(bool pdf);
    template <class Receiver, class Slot>
    void bind(QAction* a, const Receiver* receiver, Slot slot);
    // A checkable action that sets `mode` when checked and MODE_DATA when not.
    void bindMode(const char* name, KelvaneMode mode);
    // Enabled only when connected and `rule` holds.
    void enable(const char* name, bool rule);
    void check(const char* name, bool on);

    bool m_isMainInstance;
    MySettings* m_settings;
    QSplashScreen* m_splash;
    RecentFiles* m_recentImages;
    RecentFiles* m_recentFiles;
    int m_threadCount;
    KelvaneState m_state;
    QLogBuffer* m_logBuffer;
    bool m_ownLogBuffer = false;
    QPrinter* m_printer;
    KelvaneDataObject* m_dataObject;
    KelvaneData* m_data;
    KelvaneDataView* m_dataView;
    PTVmodule* m_ptvModule;
    MaskEdit* m_maskEdit;
    int m_maskEditView = 0;
    bool m_maskEditPending = false;
    PrefsDlg* m_prefsDlg;
    PREFS_CFG m_prefs;

    QStackedWidget* m_sceneStack;
    QHash<QString, QAction*> m_actions;
    QSet<QAction*> m_bound;
    QHash<QString, QMenu*> m_menus;
    QHash<QString, QToolBar*> m_toolBars;
    QComboBox* m_viewSelector;
    QComboBox* m_modeSelector;
    QLabel* m_statusLabel;
    QTimer* m_uiTimer;
    bool m_uiEnabled = false;
    bool m_viewGuard = false;
    QString m_commandLineFile;
    char m_plotOutputFormat[8];
    bool m_relativePaths = false;
    bool m_simdEnabled = PIV_SIMD_Info() > 0;
    bool m_stereoMode = false;
};

template <class Receiver, class Slot>
void Kelvane::bind(QAction* a, const Receiver* receiver, Slot slot) {
    connect(a, &QAction::triggered, receiver, slot);
    m_bound.insert(a);
}

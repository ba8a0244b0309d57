// QTwinProgressToolBar: the progress of a run at the bottom of the main
// window, with the stop button. The second bar follows the outer loop of a
// batch and shows only while in use.
#pragma once

#include <QObject>
#include <QString>

class QAction;
class QLabel;
class QMainWindow;
class QProgressBar;
class QToolBar;

class QTwinProgressToolBar : public QObject {
    Q_OBJECT
public:
    explicit QTwinProgressToolBar(QMainWindow* window);

    void setVisible(bool on);
    // Empty labels, values 0.
    void reset();
    void setText(const QString& text);
    void setText2(const QString& text);
    void setSecondBarInUse(bool on);
    bool isSecondBarInUse() const { return m_secondInUse; }

    QAction* stopAction() const { return m_stop; }
    QToolBar* toolBar(int which = 0) const { return which == 0 ? m_bar : m_bar2; }
    QProgressBar* progressBar(int which = 0) const { return which == 0 ? m_progress : m_progress2; }

public slots:
    // A negative `done` hides the bar.
    void slotShowProgress(int done, int total);
    void slotShowProgress2(int done, int total);
    // Asks before it stops anything.
    void slotCancel();

signals:
    void signalAbort();

private:
    QMainWindow* m_window;
    QToolBar* m_bar;
    QToolBar* m_bar2;
    QAction* m_stop;
    QProgressBar* m_progress;
    QProgressBar* m_progress2;
    QLabel* m_label;
    QLabel* m_label2;
    bool m_secondInUse = false;
};

#include "qtwinprogresstoolbar.h"

#include <QAction>
#include <QApplication>
#include <QIcon>
#include <QLabel>
#include <QMainWindow>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QStyle>
#include <QToolBar>

#include <optional>

namespace {

QToolBar* _makeBar(QMainWindow* window, const QString& title) {
    auto* bar = new QToolBar(title, window);
    bar->setObjectName(title);
    bar->setMovable(false);
    bar->setFloatable(false);
    window->addToolBar(Qt::BottomToolBarArea, bar);
    bar->hide();
    return bar;
}

QProgressBar* _makeProgress(QToolBar* bar) {
    auto* progress = new QProgressBar(bar);
    progress->setFixedWidth(200);
    progress->setRange(0, 100);
    bar->addWidget(progress);
    return progress;
}

void _show(QToolBar* bar, QProgressBar* progress, int done, int total) {
    if (done < 0) {
        bar->hide();
        return;
    }
    if (bar->isHidden()) bar->show();
    progress->setRange(0, total);
    progress->setValue(done);
}

}  // namespace

QTwinProgressToolBar::QTwinProgressToolBar(QMainWindow* window)
    : QObject(window), m_window(window) {
    m_bar = _makeBar(window, tr("Progress..."));
    QIcon icon(QStringLiteral(":/Qt/images/qt/stop.png"));
    if (icon.availableSizes().isEmpty())
        icon = window->style()->standardIcon(QStyle::SP_BrowserStop);
    m_stop = new QAction(icon, tr("&Stop"), this);
    m_stop->setShortcut(QKeySequence(tr("Ctrl+C")));
    m_stop->setStatusTip(tr("Stop processing data"));
    connect(m_stop, &QAction::triggered, this, &QTwinProgressToolBar::slotCancel);
    m_bar->addAction(m_stop);
    m_progress = _makeProgress(m_bar);
    m_label = new QLabel(m_bar);
    m_bar->addWidget(m_label);

    m_bar2 = _makeBar(window, tr("Progress 2..."));
    m_progress2 = _makeProgress(m_bar2);
    m_label2 = new QLabel(m_bar2);
    m_bar2->addWidget(m_label2);
}

void QTwinProgressToolBar::setVisible(bool on) {
    m_bar->setVisible(on);
    m_bar2->setVisible(on);
}

void QTwinProgressToolBar::reset() {
    m_label->clear();
    m_label2->clear();
    m_progress->setValue(0);
    m_progress2->setValue(0);
}

void QTwinProgressToolBar::setText(const QString& text) {
    m_label->setText(text);
}

void QTwinProgressToolBar::setText2(const QString& text) {
    m_label2->setText(text);
}

void QTwinProgressToolBar::setSecondBarInUse(bool on) {
    m_secondInUse = on;
    if (!on) m_bar2->hide();
}

void QTwinProgressToolBar::slotShowProgress(int done, int total) {
    _show(m_bar, m_progress, done, total);
}

void QTwinProgressToolBar::slotShowProgress2(int done, int total) {
    if (m_secondInUse) _show(m_bar2, m_progress2, done, total);
}

void QTwinProgressToolBar::slotCancel() {
    // A wait cursor would hide that the box wants an answer.
    std::optional<QCursor> overridden;
    if (const QCursor* cursor = QApplication::overrideCursor()) {
        overridden = *cursor;
        QApplication::restoreOverrideCursor();
    }
    QMessageBox box(QMessageBox::Question, tr("Abort processing?"),
                    tr("Are you sure you want to abort processing?"), QMessageBox::NoButton,
                    m_window);
    QPushButton* yes = box.addButton(tr("&Yes"), QMessageBox::YesRole);
    box.addButton(tr("&No"), QMessageBox::NoRole);
    box.exec();
    if (box.clickedButton() == yes) {
        emit signalAbort();
    } else if (overridden) {
        QApplication::setOverrideCursor(*overridden);
    }
}

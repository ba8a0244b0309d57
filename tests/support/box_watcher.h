// Answers the modal boxes and dialogs that open while in scope, recording
// the text of each, so that a test asserts what the user was asked and
// never hangs on an unexpected box.
#pragma once

#include <QAbstractButton>
#include <QApplication>
#include <QDialog>
#include <QMessageBox>
#include <QPointer>
#include <QStringList>
#include <QTimer>

class BoxWatcher {
public:
    // `button` is pressed (its text compared without '&'); a box without
    // such a button is closed by its escape route.
    explicit BoxWatcher(const QString& button = QString()) : m_button(button) {
        m_button.remove(QLatin1Char('&'));
        QObject::connect(&m_timer, &QTimer::timeout, [this] { answer(); });
        m_timer.start(5);
    }
    void setButton(const QString& button) { m_button = QString(button).remove(QLatin1Char('&')); }
    // The texts of the boxes seen, or the titles of other dialogs.
    QStringList texts;

private:
    void answer() {
        auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        if (!dialog) m_last = nullptr;
        if (!dialog || dialog == m_last) return;
        m_last = dialog;
        auto* box = qobject_cast<QMessageBox*>(dialog);
        texts << (box ? box->text() : dialog->windowTitle());
        for (QAbstractButton* b : dialog->findChildren<QAbstractButton*>())
            if (!m_button.isEmpty() && b->text().remove(QLatin1Char('&')) == m_button) {
                b->click();
                return;
            }
        dialog->reject();
    }

    QString m_button;
    QTimer m_timer;
    QPointer<QDialog> m_last;
};

// Icon size, text style and font for every tool bar of a window, as the main
// window hands them on to the windows it opens.
#pragma once

#include <QFont>
#include <QSize>
#include <QToolBar>
#include <QWidget>

inline void ApplyToolbarOptions(QWidget* window, const QSize& size, Qt::ToolButtonStyle text,
                                const QFont& font) {
    for (QToolBar* bar : window->findChildren<QToolBar*>()) {
        bar->setIconSize(size);
        bar->setToolButtonStyle(text);
        bar->setFont(font);
    }
}

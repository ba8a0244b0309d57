// Routing of all messages, the toolkit's and the library's, to the log window.
#pragma once

class QLogBuffer;

// Makes `log` the destination (a weak reference: messages are dropped once
// the window is gone) and installs both handlers. Null uninstalls them.
void InstallMessageRouting(QLogBuffer* log);
QLogBuffer* MessageLogWindow();

#pragma once

class QWindow;

namespace quonbrix {

// Asks an X11 window manager to leave a mapped window out of the taskbar and the pager
// (_NET_WM_STATE_SKIP_TASKBAR and _SKIP_PAGER). Does nothing on other platforms.
void keepOutOfTaskbar(QWindow *window);

} // namespace quonbrix

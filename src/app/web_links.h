#pragma once

#include "platform/environment.h"

#include <QUrl>

namespace quonbrix {

// Where the web console lives (Environment::consoleBase()); this machine's private local
// console is its "/local" page.
struct WebLinks {
    QUrl workspace;
    QUrl localConsole;

    static WebLinks from(const Environment &env);
};

} // namespace quonbrix

#pragma once

#include "platform/environment.h"

#include <QUrl>

namespace quonbrix {

// Where the web console lives. Its base comes from QUON_CONSOLE_URL (used when it starts with
// "http", one trailing "/" removed), else the product's own; this machine's private local
// console is its "/local" page.
struct WebLinks {
    QUrl workspace;
    QUrl localConsole;

    static WebLinks from(const Environment &env);
};

} // namespace quonbrix

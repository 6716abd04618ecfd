#pragma once

// The command lines' stdout and stderr as text streams: one stream each for the whole program
// (the function-local statics of inline functions are shared), so lines written from
// different files keep their order.

#include <QTextStream>
#include <cstdio>

namespace quonbrix::console {

inline QTextStream &out() {
    static QTextStream stream(stdout);
    return stream;
}

inline QTextStream &err() {
    static QTextStream stream(stderr);
    return stream;
}

} // namespace quonbrix::console

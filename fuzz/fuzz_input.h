#pragma once

// What every target shares: the input as Qt bytes, and a finding that libFuzzer keeps.

#include <QByteArray>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace quonbrix::fuzz {

inline QByteArray bytesOf(const uint8_t *data, size_t size) {
    return QByteArray(reinterpret_cast<const char *>(data), qsizetype(size));
}

// A broken promise is a crash: libFuzzer saves the input that led to it.
inline void require(bool holds, const char *what) {
    if (holds)
        return;
    std::fprintf(stderr, "finding: %s\n", what);
    std::abort();
}

} // namespace quonbrix::fuzz

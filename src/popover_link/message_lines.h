#pragma once

// The pipe between the tray process and its popover process carries one compact JSON object
// per line in each direction.

#include "json/json_codec.h"

#include <QByteArray>
#include <QByteArrayView>
#include <functional>
#include <optional>

namespace quonbrix::view {

template <json::Record T> QByteArray encodeLine(const T &message) {
    return json::encodeBytes(message) + '\n';
}

// Splits what arrives on a pipe into lines. A line longer than the limit is dropped whole
// (the peer is broken or hostile), so memory stays bounded whatever comes in.
class LineReader {
public:
    explicit LineReader(qsizetype maxLine = qsizetype(16) << 20)
        : m_maxLine(maxLine) {}

    // Hands every complete line in `bytes` (and what was buffered before) to `onLine`,
    // without its newline.
    void feed(QByteArrayView bytes, const std::function<void(QByteArrayView)> &onLine);
    qsizetype droppedLines() const { return m_dropped; }

private:
    qsizetype m_maxLine;
    QByteArray m_partial;
    bool m_skipping = false;
    qsizetype m_dropped = 0;
};

// One message read from a line; absent when the line is not such a message.
template <json::Record T> std::optional<T> decodeLine(QByteArrayView line) {
    return json::decode<T>(line.toByteArray());
}

} // namespace quonbrix::view

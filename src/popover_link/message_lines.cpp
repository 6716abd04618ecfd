#include "popover_link/message_lines.h"

namespace quonbrix::view {

void LineReader::feed(QByteArrayView bytes, const std::function<void(QByteArrayView)> &onLine) {
    while (!bytes.isEmpty()) {
        const qsizetype nl = bytes.indexOf('\n');
        const QByteArrayView piece = nl < 0 ? bytes : bytes.first(nl);
        bytes = nl < 0 ? QByteArrayView() : bytes.sliced(nl + 1);
        if (!m_skipping) {
            if (m_partial.size() + piece.size() > m_maxLine) {
                m_skipping = true;
                m_partial.clear();
                m_partial.squeeze();
                ++m_dropped;
            } else if (nl >= 0 && m_partial.isEmpty()) {
                onLine(piece); // the usual case: a whole line in one read, no copy
            } else {
                m_partial.append(piece);
                if (nl >= 0) {
                    const QByteArray line = std::exchange(m_partial, {});
                    onLine(line);
                }
            }
        }
        if (nl >= 0)
            m_skipping = false;
    }
}

} // namespace quonbrix::view

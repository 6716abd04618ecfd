#include "json/json_codec.h"

namespace quonbrix::json::detail {

bool decodeInt64(const QJsonValue &v, qint64 &out) {
    // toInteger() yields its fallback for values that are not integral or do not fit in 64
    // bits, so a genuine result equal to the fallback is told apart by a second fallback.
    const qint64 a = v.toInteger(0);
    if (a == 0 && v.toInteger(1) != 0)
        return false;
    out = a;
    return true;
}

} // namespace quonbrix::json::detail

#include "relative_time.h"

#include <QJsonArray>
#include <cmath>

namespace quonbrix::sim {

namespace {

qint64 unitMs(QChar unit) {
    switch (unit.unicode()) {
    case 's':
        return 1000;
    case 'm':
        return 60 * 1000;
    case 'h':
        return 60 * 60 * 1000;
    case 'd':
        return 24 * 60 * 60 * 1000;
    case 'w':
        return 7 * 24 * 60 * 60 * 1000;
    default:
        return 0;
    }
}

struct Walker {
    QDateTime anchor;
    std::optional<qint64> nearestFuture;
    QString error;

    QJsonValue resolveText(const QString &text, QStringView key, const QString &path) {
        if (!looksLikePlaceholder(text))
            return text;
        const std::optional<qint64> offset = placeholderOffsetMs(text);
        if (!offset) {
            error =
                path + QStringLiteral(": bad time placeholder \"") + text + QStringLiteral("\"");
            return {};
        }
        if (*offset > 0 && (!nearestFuture || *offset < *nearestFuture))
            nearestFuture = offset;
        const QDateTime at = anchor.addMSecs(*offset);
        switch (timeFormForKey(key)) {
        case TimeForm::EpochMs:
            return double(at.toMSecsSinceEpoch());
        case TimeForm::CalendarDate:
            return at.toLocalTime().date().toString(Qt::ISODate);
        case TimeForm::IsoText:
            break;
        }
        return isoUtc(at);
    }

    // Array elements take the key of the array that holds them.
    QJsonValue walk(const QJsonValue &value, QStringView key, const QString &path) {
        if (value.isString())
            return resolveText(value.toString(), key, path);
        if (value.isArray()) {
            QJsonArray out;
            const QJsonArray in = value.toArray();
            for (qsizetype i = 0; i < in.size() && error.isEmpty(); ++i)
                out.append(walk(in.at(i), key,
                                path + QLatin1Char('[') + QString::number(i) + QLatin1Char(']')));
            return out;
        }
        if (value.isObject())
            return walkObject(value.toObject(), path);
        return value;
    }

    QJsonObject walkObject(const QJsonObject &in, const QString &path) {
        QJsonObject out;
        for (auto it = in.constBegin(); it != in.constEnd() && error.isEmpty(); ++it) {
            const QString childPath = path.isEmpty() ? it.key() : path + u'.' + it.key();
            out.insert(it.key(), walk(it.value(), it.key(), childPath));
        }
        return out;
    }
};

} // namespace

TimeForm timeFormForKey(QStringView key) {
    if (key.endsWith(u"Ms") || key == u"lastPushAt" || key == u"expiresAt")
        return TimeForm::EpochMs;
    if (key == u"period")
        return TimeForm::CalendarDate;
    return TimeForm::IsoText;
}

bool looksLikePlaceholder(QStringView text) {
    return text == u"now" || text.startsWith(u"now+") || text.startsWith(u"now-");
}

std::optional<qint64> placeholderOffsetMs(QStringView text) {
    if (!looksLikePlaceholder(text))
        return std::nullopt;
    double total = 0;
    qsizetype i = 3;
    while (i < text.size()) {
        const double sign = text[i] == u'-' ? -1.0 : 1.0;
        ++i;
        const qsizetype numberStart = i;
        while (i < text.size() && (text[i].isDigit() || text[i] == u'.'))
            ++i;
        bool ok = false;
        const double amount = text.mid(numberStart, i - numberStart).toDouble(&ok);
        if (!ok || i >= text.size() || unitMs(text[i]) == 0)
            return std::nullopt;
        total += sign * amount * double(unitMs(text[i]));
        ++i;
        if (i < text.size() && text[i] != u'+' && text[i] != u'-')
            return std::nullopt;
    }
    // Ten years either way is far beyond anything a scenario means.
    if (std::abs(total) > 10.0 * 366 * 24 * 3600 * 1000)
        return std::nullopt;
    return qint64(total);
}

std::optional<ResolvedTree> resolvePlaceholders(const QJsonObject &tree, const QDateTime &anchor,
                                                QString *error) {
    Walker walker{anchor, std::nullopt, {}};
    QJsonObject resolved = walker.walkObject(tree, QString());
    if (!walker.error.isEmpty()) {
        if (error)
            *error = walker.error;
        return std::nullopt;
    }
    return ResolvedTree{std::move(resolved), walker.nearestFuture};
}

QString isoUtc(const QDateTime &t) {
    return t.toUTC().toString(Qt::ISODateWithMs);
}

} // namespace quonbrix::sim

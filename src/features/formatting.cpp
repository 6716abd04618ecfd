#include "features/formatting.h"

#include "features/provider_limits.h"

#include <QRegularExpression>
#include <cmath>

namespace quonbrix {

QString formatTokens(qint64 n) {
    if (n < 1000)
        return QString::number(n);
    if (n < 1000000)
        return QString::asprintf("%.1fK", double(n) / 1000.0);
    return QString::asprintf("%.1fM", double(n) / 1000000.0);
}

QString formatUSD(double dollars) {
    if (dollars < 100.0)
        return QString::asprintf("$%.2f", dollars);
    return QString::asprintf("$%.0f", dollars);
}

QString percent(double fraction) {
    const auto whole = roundToInt64(fraction * 100.0);
    // Daemon figures can be anything; an impossible ratio shows as a dash, not a crash.
    if (!whole)
        return QStringLiteral("—");
    return QString::number(*whole) + QLatin1Char('%');
}

QString providerLimitWindowName(const ProviderLimitSnapshot &snapshot) {
    const QString &w = snapshot.window;
    if (w == QLatin1String("session"))
        return QStringLiteral("5h window");
    if (w == QLatin1String("week"))
        return QStringLiteral("Weekly");
    if (w == QLatin1String("week_scoped")) {
        if (snapshot.scopeLabel && !snapshot.scopeLabel->isEmpty())
            return QStringLiteral("Weekly · ") + *snapshot.scopeLabel;
        return QStringLiteral("Weekly (model)");
    }
    return w;
}

QString formatSecondsAsHours(qint64 seconds) {
    const qint64 minutes = roundToInt64(double(seconds) / 60.0).value_or(0);
    const qint64 hours = minutes / 60;
    const qint64 rest = minutes - 60 * hours;
    if (minutes > -60 && minutes < 60)
        return QString::number(rest) + u'm';
    if (rest == 0)
        return QString::number(hours) + u'h';
    return QString::number(hours) + QStringLiteral("h ") + QString::number(rest) + u'm';
}

QString relativeTime(double epochMs, const QDateTime &now) {
    const double delta = (epochMs - double(now.toMSecsSinceEpoch())) / 1000.0;
    const double magnitude = std::abs(delta);
    if (!std::isfinite(delta))
        return QStringLiteral("—");
    if (magnitude < 1.0)
        return QStringLiteral("now");
    struct Unit {
        double seconds;
        const char *one;
        const char *many;
    };
    static constexpr Unit units[] = {{365.0 * 86400, "yr.", "yr."},
                                     {30.0 * 86400, "mo.", "mo."},
                                     {7.0 * 86400, "wk.", "wk."},
                                     {86400, "day", "days"},
                                     {3600, "hr.", "hr."},
                                     {60, "min.", "min."},
                                     {1, "sec.", "sec."}};
    for (const Unit &unit : units) {
        if (magnitude < unit.seconds)
            continue;
        // More years than an integer holds: no figure to give.
        const std::optional<qint64> count = truncToInt64(magnitude / unit.seconds);
        if (!count)
            return QStringLiteral("—");
        const QString amount = QString::number(*count) + u' ' +
                               QString::fromLatin1(*count == 1 ? unit.one : unit.many);
        return delta > 0 ? QStringLiteral("in ") + amount : amount + QStringLiteral(" ago");
    }
    return QStringLiteral("now");
}

namespace {

// The locale's short date without its year: "M/d/yy" -> "M/d", "dd.MM.yy" -> "dd.MM.",
// "yyyy/MM/dd" -> "MM/dd".
QString monthDayFormat(const QLocale &locale) {
    QString format = locale.dateFormat(QLocale::ShortFormat);
    static const QRegularExpression year(QStringLiteral("[^dMy]*y+[^dMy]*"));
    const QRegularExpressionMatch m = year.match(format);
    if (!m.hasMatch())
        return format;
    const bool atStart = m.capturedStart() == 0;
    const bool atEnd = m.capturedEnd() == format.size();
    QString replacement;
    if (!atStart && !atEnd) {
        // Between day and month: keep one separator.
        const QString sep = m.captured().remove(u'y');
        replacement = sep.left(sep.size() / 2 == 0 ? sep.size() : sep.size() / 2);
    } else if (atEnd) {
        // "dd.MM.yy": a trailing dot belongs to the month in some locales.
        const QString sep = m.captured().remove(u'y');
        replacement = sep == QLatin1String(".") ? sep : QString();
    }
    format.replace(m.capturedStart(), m.capturedLength(), replacement);
    return format;
}

// The locale's short time without seconds, which some locales (C among them) include.
QString hourMinuteFormat(const QLocale &locale) {
    QString format = locale.timeFormat(QLocale::ShortFormat);
    static const QRegularExpression seconds(QStringLiteral("[^hHmaAp]?s+"));
    return format.remove(seconds);
}

} // namespace

QString localResetCreditExpiry(double epochMs, const QLocale &locale, const QTimeZone &zone) {
    const std::optional<qint64> ms = truncToInt64(epochMs);
    const QDateTime at = ms ? QDateTime::fromMSecsSinceEpoch(*ms, zone) : QDateTime();
    if (!at.isValid())
        return QStringLiteral("—");
    const QString stamp =
        locale.toString(at, monthDayFormat(locale) + u' ' + hourMinuteFormat(locale));
    QString name = zone.abbreviation(at);
    // Zones without a name of their own report a bare offset ("+04"); show the identifier.
    if (name.isEmpty() || name.startsWith(u'+') || name.startsWith(u'-'))
        name = QString::fromUtf8(zone.id());
    return stamp + u' ' + name;
}

QString localClockTime(double epochMs, const QLocale &locale, const QTimeZone &zone) {
    // Thousands of years either way; beyond that the cast to an integer would be undefined.
    constexpr double limitMs = 1e17;
    if (!(epochMs > -limitMs && epochMs < limitMs))
        return {};
    const QDateTime at = QDateTime::fromMSecsSinceEpoch(qint64(epochMs), zone);
    return at.isValid() ? locale.toString(at, hourMinuteFormat(locale)) : QString();
}

QString codexResetCreditsHelp(const CodexResetCreditsStatus &credits, const QDateTime &now) {
    const qint64 n = resetTicketCount(credits);
    QString text = QString::number(n) + QStringLiteral(" Codex ") +
                   (n == 1 ? QStringLiteral("reset ticket") : QStringLiteral("reset tickets")) +
                   QStringLiteral(" available");
    if (credits.earliestExpiresAtMs)
        text += QStringLiteral(" · earliest expires ") +
                relativeTime(*credits.earliestExpiresAtMs, now);
    return text;
}

} // namespace quonbrix

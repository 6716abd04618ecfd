#include "update/appcast.h"

#include <QRegularExpression>
#include <QUrl>
#include <QXmlStreamReader>

namespace quonbrix {

namespace {

const QString sparkleNs = QStringLiteral("http://www.andymatuschak.org/xml-namespaces/sparkle");

struct ParsedVersion {
    std::vector<qint64> numbers;
    QString preRelease; // empty for a release
};

ParsedVersion parseVersion(const QString &text) {
    ParsedVersion v;
    static const QRegularExpression leading(QStringLiteral("^[vV]?([0-9]+(?:\\.[0-9]+)*)(.*)$"));
    const auto match = leading.match(text.trimmed());
    if (!match.hasMatch()) {
        v.preRelease = text.trimmed();
        return v;
    }
    for (const QString &part : match.captured(1).split(QLatin1Char('.'))) {
        bool ok = false;
        const qint64 n = part.left(15).toLongLong(&ok); // 15 digits never overflow
        v.numbers.push_back(ok ? n : 0);
    }
    while (!v.numbers.empty() && v.numbers.back() == 0)
        v.numbers.pop_back();
    QString rest = match.captured(2);
    while (!rest.isEmpty() &&
           (rest.front() == QLatin1Char('-') || rest.front() == QLatin1Char('.') ||
            rest.front() == QLatin1Char('+') || rest.front() == QLatin1Char('~')))
        rest.remove(0, 1);
    v.preRelease = rest;
    return v;
}

// "rc2" against "rc10": runs of digits compare as numbers, the rest as text.
int compareNatural(const QString &a, const QString &b) {
    static const QRegularExpression runs(QStringLiteral("[0-9]+|[^0-9]+"));
    auto ia = runs.globalMatch(a);
    auto ib = runs.globalMatch(b);
    while (ia.hasNext() && ib.hasNext()) {
        const QString x = ia.next().captured();
        const QString y = ib.next().captured();
        const bool digits = x.front().isDigit() && y.front().isDigit();
        if (digits) {
            // Without leading zeros, the longer run is the larger number.
            const auto significant = [](const QString &run) {
                qsizetype i = 0;
                while (i + 1 < run.size() && run[i] == QLatin1Char('0'))
                    ++i;
                return run.sliced(i);
            };
            const QString xs = significant(x);
            const QString ys = significant(y);
            if (xs.size() != ys.size())
                return xs.size() < ys.size() ? -1 : 1;
            if (const int c = xs.compare(ys); c != 0)
                return c;
        } else if (const int c = x.compare(y, Qt::CaseInsensitive); c != 0) {
            return c;
        }
    }
    return ia.hasNext() ? 1 : ib.hasNext() ? -1 : 0;
}

struct Item {
    UpdateOffer offer;
    QString itemVersion;
    QString itemDisplay;
    QString link;
    bool usable = false; // an enclosure for this system was found
};

// An enclosure meant for another system ("macos", "windows") is not ours.
bool forThisSystem(const QXmlStreamAttributes &attributes) {
    const QString os = attributes.value(sparkleNs, QStringLiteral("os")).toString();
    return os.isEmpty() || os.compare(QLatin1String("linux"), Qt::CaseInsensitive) == 0;
}

void readEnclosure(const QXmlStreamAttributes &attributes, Item &item) {
    if (item.usable || !forThisSystem(attributes))
        return;
    const QUrl url(attributes.value(QLatin1String("url")).toString(), QUrl::StrictMode);
    const QString scheme = url.scheme();
    if (!url.isValid() || (scheme != QLatin1String("https") && scheme != QLatin1String("http") &&
                           scheme != QLatin1String("file")))
        return;
    bool ok = false;
    const qint64 length = attributes.value(QLatin1String("length")).toLongLong(&ok);
    const QString signature = attributes.value(sparkleNs, QStringLiteral("edSignature")).toString();
    if (!ok || length <= 0 || signature.isEmpty())
        return;
    item.offer.url = url.toString(QUrl::FullyEncoded);
    item.offer.length = length;
    item.offer.signature = signature;
    item.offer.version = attributes.value(sparkleNs, QStringLiteral("version")).toString();
    item.offer.displayVersion =
        attributes.value(sparkleNs, QStringLiteral("shortVersionString")).toString();
    item.usable = true;
}

} // namespace

int compareVersions(const QString &a, const QString &b) {
    const ParsedVersion x = parseVersion(a);
    const ParsedVersion y = parseVersion(b);
    const size_t n = std::max(x.numbers.size(), y.numbers.size());
    for (size_t i = 0; i < n; ++i) {
        const qint64 xi = i < x.numbers.size() ? x.numbers[i] : 0;
        const qint64 yi = i < y.numbers.size() ? y.numbers[i] : 0;
        if (xi != yi)
            return xi < yi ? -1 : 1;
    }
    if (x.preRelease.isEmpty() != y.preRelease.isEmpty())
        return x.preRelease.isEmpty() ? 1 : -1;
    const int c = compareNatural(x.preRelease, y.preRelease);
    return c < 0 ? -1 : c > 0 ? 1 : 0;
}

std::variant<UpdateOffer, QString> newestInAppcast(const QByteArray &xml) {
    QXmlStreamReader reader(xml);
    std::optional<UpdateOffer> newest;
    std::optional<Item> item;
    int items = 0;
    while (!reader.atEnd()) {
        reader.readNext();
        if (reader.isStartElement()) {
            const auto name = reader.name();
            const bool sparkle = reader.namespaceUri() == sparkleNs;
            if (name == QLatin1String("item") && !sparkle) {
                item.emplace();
                ++items;
            } else if (!item) {
                continue;
            } else if (name == QLatin1String("enclosure") && !sparkle) {
                readEnclosure(reader.attributes(), *item);
            } else if (name == QLatin1String("title") && !sparkle) {
                item->offer.title = reader.readElementText().trimmed();
            } else if (name == QLatin1String("link") && !sparkle) {
                item->link = reader.readElementText().trimmed();
            } else if (sparkle && name == QLatin1String("version")) {
                item->itemVersion = reader.readElementText().trimmed();
            } else if (sparkle && name == QLatin1String("shortVersionString")) {
                item->itemDisplay = reader.readElementText().trimmed();
            } else if (sparkle && name == QLatin1String("releaseNotesLink")) {
                item->offer.notesUrl = reader.readElementText().trimmed();
            }
        } else if (reader.isEndElement() && reader.name() == QLatin1String("item") && item) {
            UpdateOffer offer = item->offer;
            if (offer.version.isEmpty())
                offer.version = item->itemVersion;
            if (offer.displayVersion.isEmpty())
                offer.displayVersion =
                    item->itemDisplay.isEmpty() ? offer.version : item->itemDisplay;
            if (offer.notesUrl.isEmpty())
                offer.notesUrl = item->link;
            if (item->usable && !offer.version.isEmpty() &&
                (!newest || compareVersions(offer.version, newest->version) > 0))
                newest = std::move(offer);
            item.reset();
        }
    }
    if (reader.hasError())
        return QStringLiteral("the feed is not valid XML (line %1: %2)")
            .arg(reader.lineNumber())
            .arg(reader.errorString().remove(QRegularExpression(QStringLiteral("\\.$"))));
    if (newest)
        return *newest;
    return items == 0 ? QStringLiteral("the feed lists no versions")
                      : QStringLiteral("the feed lists no signed download for Linux");
}

} // namespace quonbrix

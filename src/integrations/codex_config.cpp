// Codex's config.toml is the person's own, comments and layout included, so it is edited as
// text: our tables are cut out and the block is appended; toml++ only judges the result.
// This is the one place that includes toml++.

#include "integrations/config_edit.h"
#include "integrations/config_file.h"

#include <QRegularExpression>
#include <algorithm>
#include <string_view>
#include <toml++/toml.h>
#include <utility>
#include <vector>

namespace quonbrix::integrations {

namespace {

// The headers of tables, as the lines they are on. ^ and $ see LF, CR and CRLF alike, so CRLF
// files match as LF files do. Made for each edit: edits may run on several threads at once.
struct Headers {
    QRegularExpression ours{
        QStringLiteral(R"((*ANYCRLF)^\[mcp_servers\.(?:quon-brix|"quon-brix"|'quon-brix')\])"
                       R"([ \t]*(?:#[^\r\n]*)?$)"),
        QRegularExpression::MultilineOption};
    QRegularExpression oursSub{
        QStringLiteral(R"((*ANYCRLF)^\[mcp_servers\.(?:quon-brix|"quon-brix"|'quon-brix')\.)"),
        QRegularExpression::MultilineOption};
    QRegularExpression any{QStringLiteral(R"((*ANYCRLF)^\[[^\]\r\n]+\])"),
                           QRegularExpression::MultilineOption};
};

std::optional<toml::table> parseToml(const QByteArray &bytes) {
    try {
        return toml::parse(std::string_view(bytes.constData(), size_t(bytes.size())));
    } catch (const toml::parse_error &) {
        return std::nullopt;
    }
}

qsizetype lineEnd(const QString &text, qsizetype from) {
    const qsizetype lf = text.indexOf(u'\n', from);
    return lf < 0 ? text.size() : lf + 1;
}

bool isBlankOrComment(QStringView line) {
    const QStringView t = line.trimmed();
    return t.isEmpty() || t.startsWith(u'#');
}

// The table whose header line starts at `start`: up to the next header that is not one of our
// sub-tables, less the comments and blank lines it ends with, which belong to what follows.
std::pair<qsizetype, qsizetype> tableRange(const Headers &re, const QString &text,
                                           qsizetype start) {
    const qsizetype bodyStart = lineEnd(text, start);
    qsizetype end = text.size();
    auto headers = re.any.globalMatch(text, bodyStart);
    while (headers.hasNext()) {
        const qsizetype at = headers.next().capturedStart();
        if (re.oursSub
                .match(text, at, QRegularExpression::NormalMatch,
                       QRegularExpression::AnchorAtOffsetMatchOption)
                .hasMatch())
            continue;
        end = at;
        break;
    }
    qsizetype keptUpTo = bodyStart;
    for (qsizetype line = bodyStart; line < end;) {
        const qsizetype next = std::min(lineEnd(text, line), end);
        if (!isBlankOrComment(QStringView(text).mid(line, next - line)))
            keptUpTo = next;
        line = next;
    }
    return {start, keptUpTo};
}

// Without white space at the end, nor the blank lines it starts with.
QString trimmedPiece(QStringView piece) {
    while (!piece.isEmpty() && piece.back().isSpace())
        piece.chop(1);
    qsizetype firstLine = 0;
    for (qsizetype i = 0; i < piece.size() && piece[i].isSpace(); ++i)
        if (piece[i] == u'\n' || piece[i] == u'\r')
            firstLine = i + 1;
    return piece.mid(firstLine).toString();
}

} // namespace

QString tomlString(const QString &value) {
    QString out;
    out.reserve(value.size() + 2);
    out += u'"';
    for (const QChar c : value) {
        if (c == u'"' || c == u'\\')
            out += u'\\';
        if (c.unicode() < 0x20 || c.unicode() == 0x7F)
            out += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
        else
            out += c;
    }
    out += u'"';
    return out;
}

namespace {

struct CodexEdit {
    QString text;
    bool replaced = false;
};

CodexEdit editCodexText(const QString &text, const QString &block) {
    const Headers re;
    std::vector<std::pair<qsizetype, qsizetype>> ranges;
    for (const QRegularExpression *header : {&re.ours, &re.oursSub}) {
        auto matches = header->globalMatch(text);
        while (matches.hasNext())
            ranges.push_back(tableRange(re, text, matches.next().capturedStart()));
    }
    std::sort(ranges.begin(), ranges.end());

    const qsizetype firstBreak = text.indexOf(u'\n');
    const QString eol = firstBreak > 0 && text.at(firstBreak - 1) == u'\r' ? QStringLiteral("\r\n")
                                                                           : QStringLiteral("\n");
    QString kept;
    auto keep = [&](qsizetype from, qsizetype to) {
        const QString piece = trimmedPiece(QStringView(text).mid(from, to - from));
        if (piece.isEmpty())
            return;
        if (!kept.isEmpty())
            kept += eol + eol;
        kept += piece;
    };
    qsizetype at = 0;
    for (const auto &[start, end] : ranges) {
        if (start > at)
            keep(at, start);
        at = std::max(at, end);
    }
    keep(at, text.size());

    QString result = kept;
    if (!result.isEmpty())
        result += eol + eol;
    result += QString(block).replace(u'\n', eol) + eol;
    return {result, !ranges.empty()};
}

} // namespace

InstallResult installCodex(const QString &path, quint16 port, const QString &token,
                           const AfterRead &afterRead) {
    const QString block = codexSnippet(urlForPort(port), token);
    auto edit = [&](const QByteArray &current, bool) -> Edit {
        if (!parseToml(current))
            return {
                failed(QStringLiteral("%1 is not valid TOML — refusing to overwrite.").arg(path)),
                {}};
        const QString text = QString::fromUtf8(current);
        const CodexEdit edited = editCodexText(text, block);
        if (edited.text == text)
            return {{InstallResult::Kind::Unchanged, {}}, {}};
        QByteArray bytes = edited.text.toUtf8();
        if (!parseToml(bytes))
            return {
                failed(QStringLiteral("%1 would not be valid TOML — left unchanged.").arg(path)),
                {}};
        return {{edited.replaced ? InstallResult::Kind::Updated : InstallResult::Kind::Added, {}},
                std::move(bytes)};
    };
    return editConfigFile(path, edit, afterRead);
}

InstalledEntry readCodexEntry(const QString &path) {
    const ConfigRead read = readConfig(path);
    if (read.status == ConfigRead::Status::Missing)
        return {};
    const std::optional<toml::table> config =
        read.status == ConfigRead::Status::Read ? parseToml(read.bytes) : std::nullopt;
    if (!config)
        return {InstalledEntry::Status::Unreadable, {}, {}};
    const auto server = (*config)["mcp_servers"][mcpServerName.toStdString()];
    if (!server)
        return {InstalledEntry::Status::NoEntry, {}, {}};
    return {
        InstalledEntry::Status::Present,
        QString::fromStdString(server["url"].value_or(std::string())),
        QString::fromStdString(server["http_headers"]["Authorization"].value_or(std::string()))};
}

} // namespace quonbrix::integrations

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
// TOML allows blanks before a header and around its dots and brackets.
struct Headers {
    QRegularExpression ours{
        QStringLiteral(R"((*ANYCRLF)^[ \t]*\[[ \t]*mcp_servers[ \t]*\.[ \t]*)"
                       R"((?:quon-brix|"quon-brix"|'quon-brix')[ \t]*\][ \t]*(?:#[^\r\n]*)?$)"),
        QRegularExpression::MultilineOption};
    QRegularExpression oursSub{
        QStringLiteral(R"((*ANYCRLF)^[ \t]*\[[ \t]*mcp_servers[ \t]*\.[ \t]*)"
                       R"((?:quon-brix|"quon-brix"|'quon-brix')[ \t]*\.)"),
        QRegularExpression::MultilineOption};
    QRegularExpression any{QStringLiteral(R"((*ANYCRLF)^[ \t]*\[[^\]\r\n]+\])"),
                           QRegularExpression::MultilineOption};
};

using Spans = std::vector<std::pair<qsizetype, qsizetype>>;

// Where the multi-line strings of a valid TOML text lie: a line in one that reads like a table
// header is the string's content, and cutting there would change the value.
Spans multiLineStrings(const QString &text) {
    Spans spans;
    const qsizetype n = text.size();
    const auto runOf = [&](qsizetype i, QChar quote) {
        qsizetype j = i;
        while (j < n && text[j] == quote)
            ++j;
        return j - i;
    };
    for (qsizetype i = 0; i < n;) {
        const QChar c = text[i];
        if (c == u'#') {
            while (i < n && text[i] != u'\n')
                ++i;
            continue;
        }
        if (c != u'"' && c != u'\'') {
            ++i;
            continue;
        }
        const bool basic = c == u'"';
        if (runOf(i, c) >= 3) {
            const qsizetype start = i;
            i += 3;
            while (i < n) {
                if (basic && text[i] == u'\\') {
                    i += 2;
                } else if (text[i] == c) {
                    const qsizetype run = runOf(i, c);
                    i += run; // up to two quotes before the closing three are content
                    if (run >= 3)
                        break;
                } else {
                    ++i;
                }
            }
            spans.emplace_back(start, std::min(i, n));
            continue;
        }
        for (++i; i < n && text[i] != c && text[i] != u'\n'; ++i)
            if (basic && text[i] == u'\\')
                ++i;
        ++i;
    }
    return spans;
}

bool inString(const Spans &strings, qsizetype at) {
    const auto after =
        std::upper_bound(strings.cbegin(), strings.cend(), at,
                         [](qsizetype pos, const auto &span) { return pos < span.first; });
    return after != strings.cbegin() && at < std::prev(after)->second;
}

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
                                           const Spans &strings, qsizetype start) {
    const qsizetype bodyStart = lineEnd(text, start);
    qsizetype end = text.size();
    auto headers = re.any.globalMatch(text, bodyStart);
    while (headers.hasNext()) {
        const qsizetype at = headers.next().capturedStart();
        if (inString(strings, at) || re.oursSub
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

// CRLF or LF, as the first line break of `text` is; LF without one.
QString firstLineEnding(const QString &text) {
    const qsizetype lf = text.indexOf(u'\n');
    return lf > 0 && text.at(lf - 1) == u'\r' ? QStringLiteral("\r\n") : QStringLiteral("\n");
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
    const Spans strings = multiLineStrings(text);
    Spans ranges;
    for (const QRegularExpression *header : {&re.ours, &re.oursSub}) {
        auto matches = header->globalMatch(text);
        while (matches.hasNext()) {
            const qsizetype at = matches.next().capturedStart();
            if (!inString(strings, at))
                ranges.push_back(tableRange(re, text, strings, at));
        }
    }
    std::sort(ranges.begin(), ranges.end());

    QStringList pieces;
    auto keep = [&](qsizetype from, qsizetype to) {
        const QString piece = trimmedPiece(QStringView(text).mid(from, to - from));
        if (!piece.isEmpty())
            pieces << piece;
    };
    qsizetype at = 0;
    for (const auto &[start, end] : ranges) {
        if (start > at)
            keep(at, start);
        at = std::max(at, end);
    }
    keep(at, text.size());

    // Line ends as the kept text has them, so that the next install sees the same first line
    // break (blank lines trimmed off the top may have ended differently) and has nothing to do.
    const auto withBreak = std::find_if(pieces.cbegin(), pieces.cend(),
                                        [](const QString &piece) { return piece.contains(u'\n'); });
    const QString eol = firstLineEnding(withBreak == pieces.cend() ? text : *withBreak);
    QString result = pieces.join(eol + eol);
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
        const std::optional<toml::table> result = parseToml(bytes);
        if (!result)
            return {
                failed(QStringLiteral("%1 would not be valid TOML — left unchanged.").arg(path)),
                {}};
        // Under [[mcp_servers]] our table would land in the array's last element, where Codex
        // does not look for servers.
        if ((*result)["mcp_servers"][mcpServerName.toStdString()]["url"].value<std::string>() !=
            urlForPort(port).toStdString())
            return {failed(QStringLiteral("%1 keeps its MCP servers in a form this install "
                                          "cannot edit — left unchanged.")
                               .arg(path)),
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

// The JSON clients' files (~/.claude.json, claude_desktop_config.json) belong to the person and
// to the clients, and ~/.claude.json can be tens of megabytes. QJsonDocument would round every
// integer beyond 2^53 and rewrite every string, so the file is read into a tree of its own raw
// tokens instead: each number and string goes back out exactly as it came in.

#include "integrations/config_edit.h"
#include "integrations/config_file.h"

#include <QJsonDocument>
#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace quonbrix::integrations {

namespace {

constexpr uint32_t kNone = UINT32_MAX;
// Deeper than any real configuration; the limit keeps the recursion far from the stack's end.
constexpr int kMaxDepth = 512;

enum class Kind : uint8_t { Object, Array, String, Number, Literal };

// 24 bytes a value: a 20 MB file is about a million of them.
struct Node {
    uint32_t key = 0;      // object members: offset of the key's opening quote
    uint32_t keyLen = 0;   // the key token's length, quotes included
    uint32_t start = 0;    // scalars: offset of the token; containers: first child or kNone
    uint32_t size = 0;     // scalars: the token's length; containers: number of children
    uint32_t next = kNone; // the next sibling
    Kind kind = Kind::Literal;
    uint8_t text = 0; // which text the offsets point into: 0 the file, 1 our entry
};

static_assert(sizeof(Node) == 24);

// Nodes in fixed blocks: growing never copies what is there, and at most one block is slack.
class NodeStore {
public:
    uint32_t add() {
        if ((m_count & kMask) == 0)
            m_blocks.push_back(std::make_unique<Node[]>(kBlock));
        return m_count++;
    }
    Node &operator[](uint32_t i) { return m_blocks[i >> kShift][i & kMask]; }
    const Node &operator[](uint32_t i) const { return m_blocks[i >> kShift][i & kMask]; }

private:
    static constexpr uint32_t kShift = 14;
    static constexpr uint32_t kBlock = 1u << kShift;
    static constexpr uint32_t kMask = kBlock - 1;
    std::vector<std::unique_ptr<Node[]>> m_blocks;
    uint32_t m_count = 0;
};

struct Tree {
    NodeStore nodes;
    std::array<const char *, 2> texts{};

    const char *token(const Node &n) const { return texts[n.text] + n.start; }
    // A key's or string's content, without its quotes.
    std::string_view keyContent(const Node &n) const {
        return {texts[n.text] + n.key + 1, size_t(n.keyLen - 2)};
    }
    std::string_view stringContent(const Node &n) const {
        return {token(n) + 1, size_t(n.size - 2)};
    }
};

// Bytes a string may not hold as they are: controls, the quote, the backslash; and every byte
// of a multi-byte character, which is checked for valid UTF-8 separately.
constexpr std::array<bool, 256> kStopInString = [] {
    std::array<bool, 256> stop{};
    for (int c = 0; c < 0x20; ++c)
        stop[c] = true;
    stop['"'] = stop['\\'] = true;
    for (int c = 0x80; c < 0x100; ++c)
        stop[c] = true;
    return stop;
}();

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isHex(char c) {
    return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool isContinuation(unsigned char c) {
    return (c & 0xC0) == 0x80;
}

// The length of the well-formed UTF-8 character at `s`, 0 when there is none (overlong forms,
// surrogates and code points past U+10FFFF included).
int utf8Length(const unsigned char *s, const unsigned char *end) {
    const unsigned char c = s[0];
    const ptrdiff_t left = end - s;
    auto tail = [&](int n, unsigned char lo, unsigned char hi) {
        if (left < n || s[1] < lo || s[1] > hi)
            return 0;
        for (int i = 2; i < n; ++i)
            if (!isContinuation(s[i]))
                return 0;
        return n;
    };
    if (c >= 0xC2 && c <= 0xDF)
        return tail(2, 0x80, 0xBF);
    if (c == 0xE0)
        return tail(3, 0xA0, 0xBF);
    if (c == 0xED)
        return tail(3, 0x80, 0x9F);
    if (c >= 0xE1 && c <= 0xEF)
        return tail(3, 0x80, 0xBF);
    if (c == 0xF0)
        return tail(4, 0x90, 0xBF);
    if (c >= 0xF1 && c <= 0xF3)
        return tail(4, 0x80, 0xBF);
    if (c == 0xF4)
        return tail(4, 0x80, 0x8F);
    return 0;
}

// RFC 8259 and nothing more: no comments, no trailing commas, no leading zeros.
class Parser {
public:
    Parser(Tree &tree, uint8_t text, const char *begin, const char *end)
        : m_tree(tree)
        , m_text(text)
        , m_begin(begin)
        , m_p(begin)
        , m_end(end) {}

    // The root's index; kNone when the text is not one JSON value.
    uint32_t parseDocument() {
        if (m_end - m_p >= 3 && std::memcmp(m_p, "\xEF\xBB\xBF", 3) == 0)
            m_p += 3;
        uint32_t root = kNone;
        if (!value(0, root))
            return kNone;
        skipSpace();
        return m_p == m_end ? root : kNone;
    }

private:
    void skipSpace() {
        while (m_p < m_end && (*m_p == ' ' || *m_p == '\n' || *m_p == '\r' || *m_p == '\t'))
            ++m_p;
    }

    uint32_t offset(const char *p) const { return uint32_t(p - m_begin); }

    bool value(int depth, uint32_t &index) {
        skipSpace();
        if (m_p == m_end)
            return false;
        index = m_tree.nodes.add();
        Node &node = m_tree.nodes[index];
        node.text = m_text;
        const char *start = m_p;
        switch (*m_p) {
        case '{':
            node.kind = Kind::Object;
            return container(depth + 1, index, '}');
        case '[':
            node.kind = Kind::Array;
            return container(depth + 1, index, ']');
        case '"':
            node.kind = Kind::String;
            if (!string())
                return false;
            break;
        case 't':
            if (!word("true"))
                return false;
            break;
        case 'f':
            if (!word("false"))
                return false;
            break;
        case 'n':
            if (!word("null"))
                return false;
            break;
        default:
            node.kind = Kind::Number;
            if (!number())
                return false;
        }
        // `node` may have moved to no other place: blocks never move.
        node.start = offset(start);
        node.size = uint32_t(m_p - start);
        return true;
    }

    bool container(int depth, uint32_t index, char close) {
        if (depth > kMaxDepth)
            return false;
        const bool isObject = close == '}';
        ++m_p;
        skipSpace();
        uint32_t count = 0;
        uint32_t previous = kNone;
        m_tree.nodes[index].start = kNone;
        if (m_p < m_end && *m_p == close) {
            ++m_p;
            m_tree.nodes[index].size = 0;
            return true;
        }
        for (;;) {
            const char *key = nullptr;
            const char *keyEnd = nullptr;
            if (isObject) {
                skipSpace();
                if (m_p == m_end || *m_p != '"')
                    return false;
                key = m_p;
                if (!string())
                    return false;
                keyEnd = m_p;
                skipSpace();
                if (m_p == m_end || *m_p != ':')
                    return false;
                ++m_p;
            }
            uint32_t child = kNone;
            if (!value(depth, child))
                return false;
            if (isObject) {
                m_tree.nodes[child].key = offset(key);
                m_tree.nodes[child].keyLen = uint32_t(keyEnd - key);
            }
            if (previous == kNone)
                m_tree.nodes[index].start = child;
            else
                m_tree.nodes[previous].next = child;
            previous = child;
            ++count;
            skipSpace();
            if (m_p == m_end)
                return false;
            if (*m_p == ',') {
                ++m_p;
                continue;
            }
            if (*m_p != close)
                return false;
            ++m_p;
            m_tree.nodes[index].size = count;
            return true;
        }
    }

    bool string() {
        ++m_p; // the opening quote
        for (;;) {
            while (m_p < m_end && !kStopInString[static_cast<unsigned char>(*m_p)])
                ++m_p;
            if (m_p == m_end)
                return false;
            const auto c = static_cast<unsigned char>(*m_p);
            if (c == '"') {
                ++m_p;
                return true;
            }
            if (c == '\\') {
                if (m_end - m_p < 2)
                    return false;
                switch (m_p[1]) {
                case '"':
                case '\\':
                case '/':
                case 'b':
                case 'f':
                case 'n':
                case 'r':
                case 't':
                    m_p += 2;
                    break;
                case 'u':
                    if (m_end - m_p < 6 || !isHex(m_p[2]) || !isHex(m_p[3]) || !isHex(m_p[4]) ||
                        !isHex(m_p[5]))
                        return false;
                    m_p += 6;
                    break;
                default:
                    return false;
                }
                continue;
            }
            if (c < 0x20)
                return false;
            const int n = utf8Length(reinterpret_cast<const unsigned char *>(m_p),
                                     reinterpret_cast<const unsigned char *>(m_end));
            if (n == 0)
                return false;
            m_p += n;
        }
    }

    bool digits() {
        if (m_p == m_end || !isDigit(*m_p))
            return false;
        while (m_p < m_end && isDigit(*m_p))
            ++m_p;
        return true;
    }

    bool number() {
        if (*m_p == '-')
            ++m_p;
        if (m_p == m_end)
            return false;
        if (*m_p == '0')
            ++m_p;
        else if (!digits())
            return false;
        if (m_p < m_end && *m_p == '.') {
            ++m_p;
            if (!digits())
                return false;
        }
        if (m_p < m_end && (*m_p == 'e' || *m_p == 'E')) {
            ++m_p;
            if (m_p < m_end && (*m_p == '+' || *m_p == '-'))
                ++m_p;
            if (!digits())
                return false;
        }
        return true;
    }

    bool word(std::string_view w) {
        if (size_t(m_end - m_p) < w.size() || std::string_view(m_p, w.size()) != w)
            return false;
        m_p += w.size();
        return true;
    }

    Tree &m_tree;
    uint8_t m_text;
    const char *m_begin;
    const char *m_p;
    const char *m_end;
};

void appendUtf8(std::string &out, uint32_t cp) {
    if (cp < 0x80) {
        out += char(cp);
    } else if (cp < 0x800) {
        out += char(0xC0 | (cp >> 6));
        out += char(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += char(0xE0 | (cp >> 12));
        out += char(0x80 | ((cp >> 6) & 0x3F));
        out += char(0x80 | (cp & 0x3F));
    } else {
        out += char(0xF0 | (cp >> 18));
        out += char(0x80 | ((cp >> 12) & 0x3F));
        out += char(0x80 | ((cp >> 6) & 0x3F));
        out += char(0x80 | (cp & 0x3F));
    }
}

uint32_t hex4(const char *p) {
    return uint32_t(std::strtoul(std::string(p, 4).c_str(), nullptr, 16));
}

// A string's content with its escapes resolved, as UTF-8. The parser has checked its form.
std::string decode(std::string_view raw) {
    std::string out;
    out.reserve(raw.size());
    for (size_t i = 0; i < raw.size(); ++i) {
        if (raw[i] != '\\') {
            out += raw[i];
            continue;
        }
        const char e = raw[++i];
        switch (e) {
        case 'b':
            out += '\b';
            break;
        case 'f':
            out += '\f';
            break;
        case 'n':
            out += '\n';
            break;
        case 'r':
            out += '\r';
            break;
        case 't':
            out += '\t';
            break;
        case 'u': {
            uint32_t cp = hex4(raw.data() + i + 1);
            i += 4;
            if (cp >= 0xD800 && cp < 0xDC00 && i + 6 < raw.size() && raw[i + 1] == '\\' &&
                raw[i + 2] == 'u') {
                const uint32_t low = hex4(raw.data() + i + 3);
                if (low >= 0xDC00 && low < 0xE000) {
                    cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
                    i += 6;
                }
            }
            appendUtf8(out, cp); // a lone surrogate stays one, in its own three bytes
            break;
        }
        default: // '"', '\\', '/'
            out += e;
        }
    }
    return out;
}

bool hasEscape(std::string_view raw) {
    return raw.find('\\') != std::string_view::npos;
}

bool sameString(std::string_view a, std::string_view b) {
    if (a == b)
        return true;
    return (hasEscape(a) || hasEscape(b)) && decode(a) == decode(b);
}

bool keyIs(const Tree &tree, const Node &n, std::string_view key) {
    return sameString(tree.keyContent(n), key);
}

// The member named `key`; the last one when the name repeats, as JavaScript reads it.
uint32_t member(const Tree &tree, uint32_t object, std::string_view key) {
    uint32_t found = kNone;
    for (uint32_t c = tree.nodes[object].start; c != kNone; c = tree.nodes[c].next)
        if (keyIs(tree, tree.nodes[c], key))
            found = c;
    return found;
}

// Equal by what the values mean, not by how they are written.
bool sameValue(const Tree &tree, uint32_t a, uint32_t b) {
    const Node &x = tree.nodes[a];
    const Node &y = tree.nodes[b];
    if (x.kind != y.kind)
        return false;
    switch (x.kind) {
    case Kind::String:
        return sameString(tree.stringContent(x), tree.stringContent(y));
    case Kind::Number: {
        const std::string_view sx(tree.token(x), x.size), sy(tree.token(y), y.size);
        if (sx == sy)
            return true;
        // from_chars: the C locale's decimal point whatever the person's locale is.
        double dx = 0, dy = 0;
        const bool readX = std::from_chars(sx.data(), sx.data() + sx.size(), dx).ec == std::errc();
        const bool readY = std::from_chars(sy.data(), sy.data() + sy.size(), dy).ec == std::errc();
        return readX && readY && dx == dy;
    }
    case Kind::Literal:
        return std::string_view(tree.token(x), x.size) == std::string_view(tree.token(y), y.size);
    case Kind::Array: {
        if (x.size != y.size)
            return false;
        for (uint32_t i = x.start, j = y.start; i != kNone;
             i = tree.nodes[i].next, j = tree.nodes[j].next)
            if (!sameValue(tree, i, j))
                return false;
        return true;
    }
    case Kind::Object:
        if (x.size != y.size)
            return false;
        for (uint32_t i = x.start; i != kNone; i = tree.nodes[i].next) {
            const uint32_t j = member(tree, b, tree.keyContent(tree.nodes[i]));
            if (j == kNone || !sameValue(tree, i, j))
                return false;
        }
        return true;
    }
    return false;
}

// Puts `replacement` where `old` is in `parent`'s children.
void splice(Tree &tree, uint32_t parent, uint32_t old, uint32_t replacement) {
    tree.nodes[replacement].next = tree.nodes[old].next;
    if (tree.nodes[parent].start == old) {
        tree.nodes[parent].start = replacement;
        return;
    }
    uint32_t c = tree.nodes[parent].start;
    while (tree.nodes[c].next != old)
        c = tree.nodes[c].next;
    tree.nodes[c].next = replacement;
}

void appendChild(Tree &tree, uint32_t parent, uint32_t child) {
    tree.nodes[child].next = kNone;
    ++tree.nodes[parent].size;
    uint32_t c = tree.nodes[parent].start;
    if (c == kNone) {
        tree.nodes[parent].start = child;
        return;
    }
    while (tree.nodes[c].next != kNone)
        c = tree.nodes[c].next;
    tree.nodes[c].next = child;
}

// Pretty printing into one buffer sized beforehand: two spaces a level, `"key": value`, keys
// sorted by their decoded text (code point order), a repeated key kept once with its last value.
class Writer {
public:
    explicit Writer(const Tree &tree)
        : m_tree(tree) {}

    QByteArray write(uint32_t root) {
        QByteArray out(qsizetype(measure(root, 0) + 1), Qt::Uninitialized);
        m_out = out.data();
        print(root, 0);
        *m_out++ = '\n';
        out.truncate(m_out - out.data());
        return out;
    }

private:
    struct Member {
        uint32_t node;
        std::string_view key; // raw, without quotes
        bool escaped;
    };

    // An upper bound of the output's length: exact unless a key repeats.
    uint64_t measure(uint32_t index, int depth) const {
        const Node &n = m_tree.nodes[index];
        if (n.kind != Kind::Object && n.kind != Kind::Array)
            return n.size;
        if (n.size == 0)
            return 2;
        const bool isObject = n.kind == Kind::Object;
        uint64_t total = 2 + 2 * uint64_t(depth) + 1; // "{\n", closing indent and "}"
        for (uint32_t c = n.start; c != kNone; c = m_tree.nodes[c].next) {
            total += 2 * uint64_t(depth + 1) + measure(c, depth + 1) + 2; // ",\n" or "\n"
            if (isObject)
                total += m_tree.nodes[c].keyLen + 2; // ": "
        }
        return total;
    }

    static bool less(const Member &a, const Member &b) {
        if (!a.escaped && !b.escaped)
            return a.key < b.key; // unsigned bytes: code point order for UTF-8
        return decode(a.key) < decode(b.key);
    }

    static bool same(const Member &a, const Member &b) {
        if (!a.escaped && !b.escaped)
            return a.key == b.key;
        return decode(a.key) == decode(b.key);
    }

    void put(const char *data, size_t n) {
        std::memcpy(m_out, data, n);
        m_out += n;
    }

    void indent(int depth) {
        std::memset(m_out, ' ', size_t(depth) * 2);
        m_out += size_t(depth) * 2;
    }

    void print(uint32_t index, int depth) {
        const Node &n = m_tree.nodes[index];
        if (n.kind != Kind::Object && n.kind != Kind::Array) {
            put(m_tree.token(n), n.size);
            return;
        }
        if (n.size == 0) {
            put(n.kind == Kind::Object ? "{}" : "[]", 2);
            return;
        }
        if (n.kind == Kind::Array) {
            put("[\n", 2);
            for (uint32_t c = n.start; c != kNone; c = m_tree.nodes[c].next) {
                indent(depth + 1);
                print(c, depth + 1);
                if (m_tree.nodes[c].next == kNone)
                    *m_out++ = '\n';
                else
                    put(",\n", 2);
            }
            indent(depth);
            *m_out++ = ']';
            return;
        }

        // The members are sorted in a stretch at the end of one shared list, which nested
        // objects extend and give back.
        const size_t first = m_members.size();
        for (uint32_t c = n.start; c != kNone; c = m_tree.nodes[c].next) {
            const std::string_view key = m_tree.keyContent(m_tree.nodes[c]);
            m_members.push_back({c, key, hasEscape(key)});
        }
        const auto begin = m_members.begin() + ptrdiff_t(first);
        if (!std::is_sorted(begin, m_members.end(), less))
            std::stable_sort(begin, m_members.end(), less);
        const size_t last = m_members.size();
        put("{\n", 2);
        bool firstOut = true;
        for (size_t i = first; i < last; ++i) {
            if (i + 1 < last && same(m_members[i], m_members[i + 1]))
                continue;
            if (!firstOut)
                put(",\n", 2);
            firstOut = false;
            const Member m = m_members[i];
            const Node &child = m_tree.nodes[m.node];
            indent(depth + 1);
            put(m_tree.texts[child.text] + child.key, child.keyLen);
            put(": ", 2);
            print(m.node, depth + 1);
        }
        *m_out++ = '\n';
        indent(depth);
        *m_out++ = '}';
        m_members.resize(first);
    }

    const Tree &m_tree;
    char *m_out = nullptr;
    std::vector<Member> m_members;
};

struct Parsed {
    enum class Status { Ok, NotJson, NotObject, TooLarge } status = Status::NotJson;
    uint32_t root = kNone;
};

Parsed parseInto(Tree &tree, uint8_t text, const QByteArray &bytes) {
    // Offsets are 32 bits.
    if (quint64(bytes.size()) >= quint64(kNone))
        return {Parsed::Status::TooLarge};
    tree.texts[text] = bytes.constData();
    Parser parser(tree, text, bytes.constData(), bytes.constData() + bytes.size());
    const uint32_t root = parser.parseDocument();
    if (root == kNone)
        return {Parsed::Status::NotJson};
    if (tree.nodes[root].kind != Kind::Object)
        return {Parsed::Status::NotObject};
    return {Parsed::Status::Ok, root};
}

QString stringValue(const Tree &tree, uint32_t index) {
    if (index == kNone || tree.nodes[index].kind != Kind::String)
        return {};
    return QString::fromStdString(decode(tree.stringContent(tree.nodes[index])));
}

Edit merge(const QString &path, const QByteArray &current, bool exists, const QByteArray &ours) {
    Tree tree;
    uint32_t root = kNone;
    if (exists) {
        const Parsed parsed = parseInto(tree, 0, current);
        switch (parsed.status) {
        case Parsed::Status::Ok:
            root = parsed.root;
            break;
        case Parsed::Status::NotObject:
            return {
                failed(
                    QStringLiteral("%1 is not a JSON object — refusing to overwrite.").arg(path)),
                {}};
        case Parsed::Status::NotJson:
            return {
                failed(QStringLiteral("%1 is not valid JSON — refusing to overwrite.").arg(path)),
                {}};
        case Parsed::Status::TooLarge:
            return {failed(QStringLiteral("%1 is too large to edit.").arg(path)), {}};
        }
    }
    // Our own {"mcpServers":{"quon-brix":entry}} goes into the same tree, from its own text.
    const uint32_t oursRoot = parseInto(tree, 1, ours).root;
    const uint32_t oursServers = tree.nodes[oursRoot].start;
    const uint32_t oursEntry = tree.nodes[oursServers].start;
    if (root == kNone)
        root = oursRoot;

    InstallResult::Kind kind = InstallResult::Kind::Added;
    if (root != oursRoot) {
        const uint32_t servers = member(tree, root, "mcpServers");
        if (servers == kNone) {
            appendChild(tree, root, oursServers);
        } else if (tree.nodes[servers].kind != Kind::Object) {
            splice(tree, root, servers, oursServers);
        } else {
            const uint32_t existing = member(tree, servers, mcpServerName.toStdString());
            if (existing == kNone) {
                appendChild(tree, servers, oursEntry);
            } else if (sameValue(tree, existing, oursEntry)) {
                return {{InstallResult::Kind::Unchanged, {}}, {}};
            } else {
                splice(tree, servers, existing, oursEntry);
                kind = InstallResult::Kind::Updated;
            }
        }
    }
    return {{kind, {}}, Writer(tree).write(root)};
}

} // namespace

InstallResult installJSON(const QString &path, const QJsonObject &entry,
                          const AfterRead &afterRead) {
    QByteArray ours = "{\"mcpServers\":{\"" + mcpServerName.toUtf8() +
                      "\":" + QJsonDocument(entry).toJson(QJsonDocument::Compact) + "}}";
    return editConfigFile(
        path,
        [&](const QByteArray &current, bool exists) { return merge(path, current, exists, ours); },
        afterRead);
}

InstalledEntry readJsonEntry(McpClient client, const QString &path) {
    const ConfigRead read = readConfig(path);
    if (read.status == ConfigRead::Status::Missing)
        return {};
    Tree tree;
    const Parsed parsed =
        read.status == ConfigRead::Status::Read ? parseInto(tree, 0, read.bytes) : Parsed{};
    if (parsed.status != Parsed::Status::Ok)
        return {InstalledEntry::Status::Unreadable, {}, {}};

    const uint32_t servers = member(tree, parsed.root, "mcpServers");
    if (servers == kNone || tree.nodes[servers].kind != Kind::Object)
        return {InstalledEntry::Status::NoEntry, {}, {}};
    const uint32_t entry = member(tree, servers, mcpServerName.toStdString());
    if (entry == kNone)
        return {InstalledEntry::Status::NoEntry, {}, {}};
    InstalledEntry found{InstalledEntry::Status::Present, {}, {}};
    if (tree.nodes[entry].kind != Kind::Object)
        return found;

    if (client == McpClient::ClaudeDesktop) {
        // npx mcp-remote URL --header "Authorization: Bearer TOKEN"
        const uint32_t args = member(tree, entry, "args");
        if (args == kNone || tree.nodes[args].kind != Kind::Array)
            return found;
        const QLatin1String header("Authorization:");
        for (uint32_t a = tree.nodes[args].start; a != kNone; a = tree.nodes[a].next) {
            const QString arg = stringValue(tree, a);
            if (found.url.isEmpty() && (arg.startsWith(QLatin1String("http://")) ||
                                        arg.startsWith(QLatin1String("https://"))))
                found.url = arg;
            else if (arg.startsWith(header, Qt::CaseInsensitive))
                found.authorization = arg.mid(header.size()).trimmed();
        }
        return found;
    }
    found.url = stringValue(tree, member(tree, entry, "url"));
    const uint32_t headers = member(tree, entry, "headers");
    if (headers != kNone && tree.nodes[headers].kind == Kind::Object)
        found.authorization = stringValue(tree, member(tree, headers, "Authorization"));
    return found;
}

} // namespace quonbrix::integrations

// The CA bundle brixd gets through SSL_CERT_FILE: which source wins, what survives cleaning,
// what is logged, and that a failed build never damages the bundle a previous run left behind.

#include "helpers/log_capture.h"
#include "helpers/openssl_pipeline.h"
#include "supervisor/trust_store_child.h"
#include "trust_store/trust_store.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <QTest>
#include <sys/stat.h>
#include <sys/time.h>

using namespace quonbrix;
using namespace std::chrono_literals;
using quonbrix::test::LogCapture;

namespace {

constexpr char kCategory[] = "quonbrix.truststore";

QByteArray readAll(const QString &path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool writeFile(const QString &path, const QByteArray &bytes) {
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size();
}

int modeOf(const QString &path) {
    struct stat st = {};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return -1;
    return int(st.st_mode & 07777);
}

// The sixty self-signed test roots, one canonical PEM block each.
const QList<QByteArray> &roots() {
    static const QList<QByteArray> blocks = [] {
        QList<QByteArray> out;
        const QByteArray all =
            readAll(QStringLiteral(QUONBRIX_HELPERS_DIR "/fixtures/test-roots.pem"));
        const QByteArray end = "-----END CERTIFICATE-----\n";
        for (qsizetype pos = 0; pos < all.size();) {
            const qsizetype e = all.indexOf(end, pos);
            if (e < 0)
                break;
            out << all.mid(pos, e + end.size() - pos);
            pos = e + end.size();
        }
        return out;
    }();
    return blocks;
}

QByteArray rootsJoined(int from, int count) {
    QByteArray out;
    for (int i = from; i < from + count; ++i)
        out += roots().at(i);
    return out;
}

// One block with a character in its body that base64 does not have.
QByteArray withStrayCharacter(const QByteArray &block) {
    QByteArray b = block;
    b[b.indexOf('\n') + 10] = '!';
    return b;
}

struct DamageCase {
    const char *name;
    QByteArray input;
    QList<int> expected; // indices into roots(), in output order
};

QList<DamageCase> damageCases() {
    const QList<QByteArray> &r = roots();
    QByteArray crlf = r[1];
    crlf.replace("\n", "\r\n");
    const QByteArray notACertificate = "-----BEGIN CERTIFICATE-----\n" +
                                       QByteArray(300, 'q').toBase64() +
                                       "\n-----END CERTIFICATE-----\n";
    QByteArray truncated = r[1].left(r[1].size() - 120);
    truncated.truncate(truncated.lastIndexOf('\n') + 1); // whole lines, END line gone
    QByteArray duplicatedEnd = r[0] + "trailing note\n-----END CERTIFICATE-----\n" + r[1];
    return {
        {"clean blocks with text between them",
         "# header\n" + r[0] + "\nnote\n" + r[1] + r[2],
         {0, 1, 2}},
        {"a stray character drops only its block", r[0] + withStrayCharacter(r[1]) + r[2], {0, 2}},
        {"a block cut short before END is dropped", r[0] + truncated + r[2], {0, 2}},
        {"a last block without END is dropped", r[0] + r[1].left(200), {0}},
        {"valid base64 that is not a certificate is dropped",
         r[0] + notACertificate + r[2],
         {0, 2}},
        {"CRLF line endings are cleaned to LF", r[0] + crlf, {0, 1}},
        {"a BEGIN marker behind other text is not a block start", r[0] + "# " + r[1], {0}},
        {"a second END line repeats the block before it", duplicatedEnd, {0, 0, 1}},
        {"nothing but text", "hello\nworld\n", {}},
    };
}

} // namespace

class TrustStoreTest : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_tmp;
    LogCapture *m_log = nullptr;
    int m_case = 0;

    // A fresh directory per row, so rows never see each other's files.
    QString freshDir() {
        const QString dir = m_tmp.filePath(QStringLiteral("case-%1").arg(++m_case));
        QDir().mkpath(dir);
        return dir;
    }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(m_tmp.isValid());
        QCOMPARE(roots().size(), 60);
        m_log = new LogCapture;
    }
    void cleanupTestCase() { delete m_log; }
    void init() { m_log->clear(); }

    void itBundleProbe_data() {
        QTest::addColumn<QByteArray>("first"); // empty: the file is missing
        QTest::addColumn<QByteArray>("second");
        QTest::addColumn<int>("chosen"); // 1, 2, or 0 when the system bundle is built

        const QByteArray notUtf8 = "# \xff\xfe\n" + rootsJoined(0, 60);
        QTest::newRow("exactly 50 is used") << rootsJoined(0, 50) << rootsJoined(0, 60) << 1;
        QTest::newRow("49 is skipped and the next one probed")
            << rootsJoined(0, 49) << rootsJoined(0, 50) << 2;
        QTest::newRow("a comment header before the first block does not count")
            << "# Netskope\n# combined bundle\n" + rootsJoined(0, 50) << QByteArray() << 1;
        QTest::newRow("a missing file is skipped") << QByteArray() << rootsJoined(0, 55) << 2;
        QTest::newRow("a file that is not text is skipped") << notUtf8 << rootsJoined(0, 50) << 2;
        QTest::newRow("none big enough: the system bundle is used")
            << rootsJoined(0, 49) << rootsJoined(0, 3) << 0;
    }

    void itBundleProbe() {
        QFETCH(QByteArray, first);
        QFETCH(QByteArray, second);
        QFETCH(int, chosen);
        const QString dir = freshDir();
        TrustStoreSources s;
        s.itBundles = {dir + QStringLiteral("/agent1.pem"), dir + QStringLiteral("/agent2.pem")};
        if (!first.isEmpty())
            QVERIFY(writeFile(s.itBundles[0], first));
        if (!second.isEmpty())
            QVERIFY(writeFile(s.itBundles[1], second));
        s.systemBundles = {dir + QStringLiteral("/system.crt")};
        QVERIFY(writeFile(s.systemBundles[0], rootsJoined(0, 60)));
        s.outputDir = dir + QStringLiteral("/private");

        const std::optional<QString> path = truststore::build(s);
        QVERIFY(path);
        if (chosen > 0) {
            // The agent's file is handed over as it is, not copied.
            QCOMPARE(*path, s.itBundles[chosen - 1]);
            QVERIFY(!QFileInfo::exists(s.outputDir));
            QCOMPARE(
                m_log->lines(kCategory),
                QStringList{QStringLiteral("[QuonBrix] brixd trust-store: using IT CA bundle ") +
                            *path});
        } else {
            QCOMPARE(*path, s.outputDir + QStringLiteral("/trust-store.pem"));
            QCOMPARE(readAll(*path), rootsJoined(0, 60));
        }
    }

    void bundleFromSystemAndAnchors_data() {
        QTest::addColumn<QByteArray>("firstCandidate"); // empty: missing
        QTest::addColumn<QByteArray>("secondCandidate");
        QTest::addColumn<QList<QByteArray>>("anchors"); // a.pem, b.crt, notes.txt
        QTest::addColumn<QByteArray>("expected");       // empty: no bundle
        QTest::addColumn<QString>("logLine");

        const QString written =
            QStringLiteral("[QuonBrix] brixd trust-store: %1 normalized certs → ");
        const QString tooFew = QStringLiteral(
            "[QuonBrix] brixd trust-store: only %1 certs exported — keeping Bun bundled roots");
        const QString nothing = QStringLiteral("[QuonBrix] brixd trust-store: openssl normalize "
                                               "unavailable — keeping Bun bundled roots");
        const QList<QByteArray> none{{}, {}, {}};

        QTest::newRow("first candidate missing, second read")
            << QByteArray() << rootsJoined(0, 55) << none << rootsJoined(0, 55) << written.arg(55);
        QTest::newRow("only the first existing candidate is read")
            << rootsJoined(0, 20) << rootsJoined(0, 60) << none << QByteArray() << tooFew.arg(20);
        QTest::newRow("user anchors are added after the system bundle, other files ignored")
            << QByteArray() << rootsJoined(0, 45)
            << QList<QByteArray>{rootsJoined(45, 3), rootsJoined(48, 2), rootsJoined(50, 10)}
            << rootsJoined(0, 50) << written.arg(50);
        QTest::newRow("49 after cleaning is too few")
            << rootsJoined(0, 49) + withStrayCharacter(roots()[49]) << QByteArray() << none
            << QByteArray() << tooFew.arg(49);
        QTest::newRow("nothing to read at all")
            << QByteArray() << QByteArray() << none << QByteArray() << nothing;
        QTest::newRow("a bundle that does not parse")
            << QByteArray("-----BEGIN CERTIFICATE-----\n@@@\n-----END CERTIFICATE-----\n")
            << QByteArray() << none << QByteArray() << nothing;
    }

    void bundleFromSystemAndAnchors() {
        QFETCH(QByteArray, firstCandidate);
        QFETCH(QByteArray, secondCandidate);
        QFETCH(QList<QByteArray>, anchors);
        QFETCH(QByteArray, expected);
        QFETCH(QString, logLine);
        const QString dir = freshDir();
        TrustStoreSources s;
        s.systemBundles = {dir + QStringLiteral("/etc-a.crt"), dir + QStringLiteral("/etc-b.crt")};
        if (!firstCandidate.isEmpty())
            QVERIFY(writeFile(s.systemBundles[0], firstCandidate));
        if (!secondCandidate.isEmpty())
            QVERIFY(writeFile(s.systemBundles[1], secondCandidate));
        s.extraAnchorsDir = dir + QStringLiteral("/anchors");
        QDir().mkpath(s.extraAnchorsDir);
        const QStringList anchorNames{QStringLiteral("a.pem"), QStringLiteral("b.crt"),
                                      QStringLiteral("notes.txt")};
        for (int i = 0; i < anchors.size(); ++i) {
            if (!anchors[i].isEmpty())
                QVERIFY(writeFile(s.extraAnchorsDir + u'/' + anchorNames[i], anchors[i]));
        }
        s.outputDir = dir + QStringLiteral("/private");

        const std::optional<QString> path = truststore::build(s);
        const QString target = s.outputDir + QStringLiteral("/trust-store.pem");
        if (expected.isEmpty()) {
            QVERIFY(!path);
            QVERIFY(!QFileInfo::exists(target));
            QCOMPARE(m_log->lines(kCategory), QStringList{logLine});
        } else {
            QCOMPARE(path, std::optional<QString>(target));
            QCOMPARE(readAll(target), expected);
            QCOMPARE(m_log->lines(kCategory), QStringList{logLine + target});
        }
    }

    void damagedBlocks_data() {
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<QList<int>>("expected");
        for (const DamageCase &c : damageCases())
            QTest::newRow(c.name) << c.input << c.expected;
    }

    void damagedBlocks() {
        QFETCH(QByteArray, input);
        QFETCH(QList<int>, expected);
        QByteArray want;
        for (const int i : expected)
            want += roots().at(i);
        const std::optional<QByteArray> got = truststore::normalizeCerts(input);
        QCOMPARE(got.value_or(QByteArray()), want);
        QCOMPARE(got.has_value(), !expected.isEmpty());
    }

    // The in-process cleaner must give brixd exactly what the awk + openssl pipeline gave it.
    void matchesOpenSslPipeline_data() {
        QTest::addColumn<QByteArray>("input");
        const QStringList systemBundles = TrustStoreSources::forPrivateDir(QString()).systemBundles;
        for (const QString &path : systemBundles) {
            if (QFileInfo(path).isFile()) {
                QTest::newRow("the system bundle") << readAll(path);
                break;
            }
        }
        for (const DamageCase &c : damageCases())
            QTest::newRow(c.name) << c.input;
    }

    void matchesOpenSslPipeline() {
        if (!quonbrix::test::opensslPipelineAvailable())
            QSKIP("openssl or awk is not installed; the pipeline cannot be run for comparison");
        QFETCH(QByteArray, input);
        const std::optional<QByteArray> ours = truststore::normalizeCerts(input);
        const QString scratch = freshDir() + QStringLiteral("/raw.pem");
        const std::optional<QByteArray> theirs =
            quonbrix::test::normalizeWithOpenSslPipeline(input, scratch);
        QVERIFY(!QFileInfo::exists(scratch));
        QCOMPARE(ours.has_value(), theirs.has_value());
        if (ours) {
            QCOMPARE(truststore::certificateCount(*ours), truststore::certificateCount(*theirs));
            QVERIFY(*ours == *theirs);
        }
    }

    void writtenFileIsPrivate_data() {
        QTest::addColumn<bool>("existing");
        QTest::addColumn<bool>("inHelper"); // built the app's way, by quonbrix-truststore
        QTest::addColumn<bool>("linked");   // the private directory a symlink to a folder
        QTest::newRow("first run creates the directory") << false << false << false;
        QTest::newRow("a later run replaces a looser file in a looser directory")
            << true << false << false;
        QTest::newRow("the helper writes the same bytes the same way") << true << true << false;
        QTest::newRow("a private directory linked elsewhere (dotfiles)") << true << true << true;
    }

    void writtenFileIsPrivate() {
        QFETCH(bool, existing);
        QFETCH(bool, inHelper);
        QFETCH(bool, linked);
        const QString dir = freshDir();
        TrustStoreSources s;
        s.systemBundles = {dir + QStringLiteral("/system.crt")};
        QVERIFY(writeFile(s.systemBundles[0], rootsJoined(0, 45)));
        s.extraAnchorsDir = dir + QStringLiteral("/anchors");
        QVERIFY(QDir().mkdir(s.extraAnchorsDir));
        QVERIFY(writeFile(s.extraAnchorsDir + QStringLiteral("/corp.pem"), rootsJoined(45, 15)));
        s.outputDir = dir + QStringLiteral("/private");
        const QString target = s.outputDir + QStringLiteral("/trust-store.pem");
        const QString real = linked ? dir + QStringLiteral("/dotfiles") : s.outputDir;
        if (linked)
            QVERIFY(QFile::link(real, s.outputDir));
        if (existing) {
            QVERIFY(QDir().mkdir(real));
            QVERIFY(writeFile(target, "old bundle\n"));
            QVERIFY(::chmod(QFile::encodeName(target).constData(), 0644) == 0);
            QVERIFY(::chmod(QFile::encodeName(s.outputDir).constData(), 0755) == 0);
        }

        const std::optional<QString> built =
            inHelper ? truststore::buildInChild(QStringLiteral(QUONBRIX_BIN_DIR), s,
                                                QProcessEnvironment::systemEnvironment(), 10s)
                     : truststore::build(s);
        QCOMPARE(built, std::optional<QString>(target));
        QCOMPARE(readAll(target), rootsJoined(0, 60));
        QCOMPARE(modeOf(target), 0600);
        QCOMPARE(modeOf(real), 0700);
        QCOMPARE(QFileInfo(s.outputDir).isSymLink(), linked);
        // Nothing half-written left behind next to it.
        QCOMPARE(
            QDir(s.outputDir).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
            QStringList{QStringLiteral("trust-store.pem")});
    }

    void failureKeepsThePreviousBundle_data() {
        QTest::addColumn<QByteArray>("system");
        QTest::addColumn<bool>("killedAtRename"); // the helper dies between write and rename
        QTest::addColumn<QString>("logStart");
        QTest::newRow("a bundle that does not parse")
            << QByteArray("not a bundle\n") << false
            << QStringLiteral("[QuonBrix] brixd trust-store: openssl normalize unavailable");
        QTest::newRow("too few certificates")
            << rootsJoined(0, 10) << false
            << QStringLiteral("[QuonBrix] brixd trust-store: only 10 certs");
        QTest::newRow("the writer killed before its rename")
            << rootsJoined(0, 60) << true
            << QStringLiteral("[QuonBrix] brixd trust-store: helper crashed (signal 9)");
    }

    void failureKeepsThePreviousBundle() {
        QFETCH(QByteArray, system);
        QFETCH(bool, killedAtRename);
        QFETCH(QString, logStart);
        const QString dir = freshDir();
        TrustStoreSources s;
        s.systemBundles = {dir + QStringLiteral("/system.crt")};
        QVERIFY(writeFile(s.systemBundles[0], system));
        s.outputDir = dir + QStringLiteral("/private");
        QVERIFY(QDir().mkdir(s.outputDir));
        const QString target = s.outputDir + QStringLiteral("/trust-store.pem");
        QVERIFY(writeFile(target, rootsJoined(0, 55)));

        QProcessEnvironment killer = QProcessEnvironment::systemEnvironment();
        killer.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(QUONBRIX_KILL_AT_RENAME));
        // The preloaded library has no sanitizer runtime of its own.
        killer.insert(QStringLiteral("ASAN_OPTIONS"),
                      qEnvironmentVariable("ASAN_OPTIONS") +
                          QStringLiteral(":verify_asan_link_order=0"));
        QVERIFY(!(killedAtRename
                      ? truststore::buildInChild(QStringLiteral(QUONBRIX_BIN_DIR), s, killer, 10s)
                      : truststore::build(s)));
        QCOMPARE(readAll(target), rootsJoined(0, 55));
        const QStringList lines = m_log->lines(kCategory);
        QCOMPARE(lines.size(), 1);
        QVERIFY2(lines[0].startsWith(logStart), qPrintable(lines[0]));
        if (!killedAtRename)
            return;
        // What the killed writer left is cleared by a later write, once it is an hour old.
        const QDir out(s.outputDir);
        const QStringList left =
            out.entryList({QStringLiteral(".trust-store.pem.*")}, QDir::Hidden | QDir::Files);
        QCOMPARE(left.size(), 1);
        const QByteArray leftPath = QFile::encodeName(out.filePath(left[0]));
        const struct timeval hoursAgo[2] = {{::time(nullptr) - 7200, 0},
                                            {::time(nullptr) - 7200, 0}};
        QCOMPARE(::utimes(leftPath.constData(), hoursAgo), 0);
        QVERIFY(truststore::build(s));
        QCOMPARE(out.entryList(QDir::Hidden | QDir::Files),
                 QStringList{QStringLiteral("trust-store.pem")});
    }

    void unwritableDestination_data() {
        QTest::addColumn<QString>("layout");
        QTest::newRow("home directory missing") << QStringLiteral("no-home");
        QTest::newRow("private directory is a file") << QStringLiteral("file");
    }

    void unwritableDestination() {
        QFETCH(QString, layout);
        const QString dir = freshDir();
        TrustStoreSources s;
        s.systemBundles = {dir + QStringLiteral("/system.crt")};
        QVERIFY(writeFile(s.systemBundles[0], rootsJoined(0, 60)));
        if (layout == QStringLiteral("no-home")) {
            s.outputDir = dir + QStringLiteral("/gone/.quon-brix");
        } else {
            s.outputDir = dir + QStringLiteral("/.quon-brix");
            QVERIFY(writeFile(s.outputDir, "someone's file\n"));
        }

        QVERIFY(!truststore::build(s));
        const QStringList lines = m_log->lines(kCategory);
        QCOMPARE(lines.size(), 1);
        QVERIFY2(
            lines[0].startsWith(QStringLiteral("[QuonBrix] brixd trust-store: write failed: ")) &&
                lines[0].contains(s.outputDir),
            qPrintable(lines[0]));
        if (layout == QStringLiteral("no-home"))
            QVERIFY(!QFileInfo::exists(dir + QStringLiteral("/gone")));
        else
            QCOMPARE(readAll(s.outputDir), QByteArray("someone's file\n"));
    }
};

QTEST_GUILESS_MAIN(TrustStoreTest)
#include "test_trust_store.moc"

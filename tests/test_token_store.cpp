// The sign-in tokens in a real keyring: gnome-keyring-daemon on the test's own session bus
// (which starts no service by itself), read back the way the daemon's runtime and secret-tool
// look them up, and the message a person gets when there is no keyring to store them in.

#include "account/token_store.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QElapsedTimer>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <csignal>
#include <memory>

using namespace quonbrix;
using namespace Qt::StringLiterals;

namespace {

const QString kSecretsName = u"org.freedesktop.secrets"_s;

QDBusMessage callSecrets(const QString &path, const QString &interface, const QString &method,
                         const QVariantList &args) {
    QDBusMessage call = QDBusMessage::createMethodCall(kSecretsName, path, interface, method);
    call.setArguments(args);
    return QDBusConnection::sessionBus().call(call);
}

// The collection behind the "default" alias, where the tokens go; empty when there is none.
QString defaultCollection() {
    const QDBusMessage answer =
        callSecrets(u"/org/freedesktop/secrets"_s, u"org.freedesktop.Secret.Service"_s,
                    u"ReadAlias"_s, {u"default"_s});
    const QString path = answer.arguments().value(0).value<QDBusObjectPath>().path();
    return path == u"/"_s ? QString() : path;
}

bool isLocked(const QString &collection) {
    const QDBusMessage answer =
        callSecrets(collection, u"org.freedesktop.DBus.Properties"_s, u"Get"_s,
                    {u"org.freedesktop.Secret.Collection"_s, u"Locked"_s});
    return answer.arguments().value(0).value<QDBusVariant>().variant().toBool();
}

// gnome-keyring-daemon with a fresh login keyring, unlocked with an empty password the way PAM
// does it at login, in a home directory of its own.
class Keyring {
public:
    ~Keyring() { stop(); }

    // Empty when it runs with the default collection unlocked, else why not.
    QString start() {
        stop();
        m_home = std::make_unique<QTemporaryDir>();
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(u"HOME"_s, m_home->path());
        env.insert(u"XDG_DATA_HOME"_s, m_home->path() + u"/.local/share"_s);
        // Without a runtime directory the daemon puts its control socket under HOME and says
        // where, which tells us it came up.
        env.remove(u"XDG_RUNTIME_DIR"_s);
        m_process = std::make_unique<QProcess>();
        m_process->setProcessEnvironment(env);
        m_process->start(u"gnome-keyring-daemon"_s,
                         {u"--foreground"_s, u"--unlock"_s, u"--components=secrets"_s});
        if (!m_process->waitForStarted(5000))
            return u"gnome-keyring-daemon did not start: "_s + m_process->errorString();
        m_process->write("\n");
        m_process->closeWriteChannel();

        QElapsedTimer waited;
        waited.start();
        while (!m_process->readAllStandardOutput().contains("GNOME_KEYRING_CONTROL=")) {
            if (waited.elapsed() > 10000 || m_process->state() != QProcess::Running)
                return u"gnome-keyring-daemon never exported GNOME_KEYRING_CONTROL: "_s +
                       QString::fromLocal8Bit(m_process->readAllStandardError());
            m_process->waitForReadyRead(100);
        }
        while (defaultCollection().isEmpty() || isLocked(defaultCollection())) {
            if (waited.elapsed() > 10000)
                return u"the default collection never came up unlocked"_s;
            QTest::qWait(50);
        }
        return {};
    }

    void stop() {
        if (!m_process)
            return;
        m_process->terminate();
        if (!m_process->waitForFinished(5000))
            m_process->kill();
        m_process->waitForFinished(1000);
        m_process.reset();
        // The bus drops the name when the process is gone; wait for that, not for luck.
        QElapsedTimer waited;
        waited.start();
        while (QDBusConnection::sessionBus().interface()->isServiceRegistered(kSecretsName) &&
               waited.elapsed() < 5000)
            QTest::qWait(20);
    }

    qint64 pid() const { return m_process ? m_process->processId() : 0; }

private:
    std::unique_ptr<QTemporaryDir> m_home;
    std::unique_ptr<QProcess> m_process;
};

struct Answer {
    int calls = 0;
    std::optional<QString> error;
    bool onCallingThread = false;
};

void storeInto(TokenStore &store, const QString &account, const QString &secret, QObject *context,
               Answer &answer) {
    store.store(account, secret, context, [&answer](std::optional<QString> error) {
        ++answer.calls;
        answer.error = std::move(error);
        answer.onCallingThread = QThread::currentThread() == qApp->thread();
    });
}

// secret-tool's words for what the keyring holds: stdout and stderr together, as it splits an
// item's lines between them.
QString secretTool(const QStringList &args) {
    QProcess tool;
    tool.setProcessChannelMode(QProcess::MergedChannels);
    tool.start(u"secret-tool"_s, args);
    tool.waitForFinished(10000);
    return QString::fromUtf8(tool.readAll());
}

int linesEqualTo(const QString &text, const QString &line) {
    return int(text.split(u'\n').count(line));
}

} // namespace

class TokenStoreTest : public QObject {
    Q_OBJECT

    Keyring m_keyring;
    QObject m_context;

private Q_SLOTS:
    void initTestCase() {
        if (QStandardPaths::findExecutable(u"gnome-keyring-daemon"_s).isEmpty())
            QSKIP("gnome-keyring-daemon is not installed (Debian: gnome-keyring)");
        QVERIFY2(!QStandardPaths::findExecutable(u"secret-tool"_s).isEmpty(),
                 "secret-tool is missing (Debian: libsecret-tools)");
        // Only on the bus CTest gives this test: on a desktop's own bus this would touch the
        // person's real keyring.
        QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
        if (!bus || bus->isServiceRegistered(kSecretsName) ||
            bus->activatableServiceNames().value().contains(kSecretsName))
            QSKIP("needs the private session bus from tests/support/bare-session-bus.conf; run "
                  "it through ctest");
    }

    // Both tokens land where the daemon's runtime and secret-tool look, once each however
    // often the computer is signed in, and a slow keyring never holds up the asking thread.
    void storesWhereTheDaemonLooks() {
        const QString why = m_keyring.start();
        QVERIFY2(why.isEmpty(), qPrintable(why));
        SecretServiceTokenStore store;
        for (const QString &round : {u"first"_s, u"second"_s}) {
            // The keyring stops answering for a moment: the call must still return at once.
            QVERIFY(::kill(pid_t(m_keyring.pid()), SIGSTOP) == 0);
            Answer refresh, access;
            QElapsedTimer asked;
            asked.start();
            storeInto(store, tokens::refreshAccount, u"rt-"_s + round, &m_context, refresh);
            storeInto(store, tokens::accessAccount, u"at-"_s + round, &m_context, access);
            QVERIFY2(asked.elapsed() < 1000, qPrintable(QString::number(asked.elapsed())));
            QTest::qWait(200);
            QCOMPARE(refresh.calls + access.calls, 0);
            QVERIFY(::kill(pid_t(m_keyring.pid()), SIGCONT) == 0);

            QTRY_VERIFY_WITH_TIMEOUT(refresh.calls == 1 && access.calls == 1, 10000);
            QCOMPARE(refresh.error, std::nullopt);
            QCOMPARE(access.error, std::nullopt);
            QVERIFY(refresh.onCallingThread && access.onCallingThread);
        }

        QCOMPARE(secretTool({u"lookup"_s, u"service"_s, u"app.quonbrix.shared"_s, u"account"_s,
                             u"quon-brix"_s}),
                 u"at-second"_s);
        QCOMPARE(secretTool({u"lookup"_s, u"service"_s, u"app.quonbrix.shared"_s, u"account"_s,
                             u"quon-brix-refresh"_s}),
                 u"rt-second"_s);
        const QString items =
            secretTool({u"search"_s, u"--all"_s, u"service"_s, u"app.quonbrix.shared"_s});
        QCOMPARE(items.count(u"label = "_s), 2);
        QCOMPARE(linesEqualTo(items, u"label = app.quonbrix.shared/quon-brix"_s), 1);
        QCOMPARE(linesEqualTo(items, u"label = app.quonbrix.shared/quon-brix-refresh"_s), 1);
        QCOMPARE(linesEqualTo(items, u"schema = com.oven-sh.bun.Secret"_s), 2);
        QCOMPARE(linesEqualTo(items, u"attribute.service = app.quonbrix.shared"_s), 2);
    }

    void failureMessage_data() {
        QTest::addColumn<QString>("keyring");
        QTest::addColumn<QString>("message");
        QTest::newRow("no Secret Service on the bus")
            << u"absent"_s
            << u"Could not save sign-in credentials to the keyring. No Secret Service is running: "
               "install gnome-keyring (or KeePassXC with its Secret Service integration switched "
               "on)."_s;
        QTest::newRow("locked, and nothing to show the unlock prompt")
            << u"locked"_s << u"Could not save sign-in credentials to the keyring"_s;
    }

    void failureMessage() {
        QFETCH(QString, keyring);
        QFETCH(QString, message);
        if (keyring == u"absent"_s) {
            m_keyring.stop();
        } else {
            const QString why = m_keyring.start();
            QVERIFY2(why.isEmpty(), qPrintable(why));
            const QString collection = defaultCollection();
            callSecrets(u"/org/freedesktop/secrets"_s, u"org.freedesktop.Secret.Service"_s,
                        u"Lock"_s,
                        {QVariant::fromValue(QList<QDBusObjectPath>{QDBusObjectPath(collection)})});
            QVERIFY(isLocked(collection));
        }

        SecretServiceTokenStore store;
        Answer answer;
        storeInto(store, tokens::accessAccount, u"at-never"_s, &m_context, answer);
        QTRY_VERIFY_WITH_TIMEOUT(answer.calls == 1, 10000);
        QCOMPARE(answer.error, std::optional(message));
    }

    void cleanupTestCase() { m_keyring.stop(); }
};

QTEST_GUILESS_MAIN(TokenStoreTest)
#include "test_token_store.moc"

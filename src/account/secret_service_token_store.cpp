#include "account/token_store.h"

#include "log/log_categories.h"

#include <QThread>

// After Qt, and only with Qt's keywords switched off: GIO has struct members named "signals".
#include <libsecret/secret.h>

namespace quonbrix {

namespace {

const QString kNoServiceHint =
    QStringLiteral(". No Secret Service is running: install gnome-keyring (or KeePassXC with its "
                   "Secret Service integration switched on).");

// The item layout the daemon's runtime (Bun) looks its secrets up by on Linux: the schema name
// ends up in the item's xdg:schema attribute, and lookups match on it.
const SecretSchema &itemSchema() {
    static const SecretSchema schema = [] {
        SecretSchema s = {};
        s.name = "com.oven-sh.bun.Secret";
        s.flags = SECRET_SCHEMA_NONE;
        s.attributes[0] = {"service", SECRET_SCHEMA_ATTRIBUTE_STRING};
        s.attributes[1] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
        return s;
    }();
    return schema;
}

bool isMissingService(const GError *error) {
    return g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
           g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER);
}

// One store, run on the keyring thread. Its answer travels as a queued signal, which Qt drops
// safely when the asker is gone by then.
class StoreJob : public QObject {
    Q_OBJECT

public:
    StoreJob(QString account, QString secret, GCancellable *cancellable)
        : m_account(std::move(account))
        , m_secret(std::move(secret))
        , m_cancellable(cancellable) {}

    void run() {
        const QByteArray service = tokens::service.toUtf8();
        const QByteArray account = m_account.toUtf8();
        const QByteArray label = service + '/' + account;
        QByteArray secret = m_secret.toUtf8();
        m_secret.clear();
        GError *error = nullptr;
        // Items with the same attributes are replaced, so signing in again leaves one item per
        // account. A locked collection is unlocked through the desktop's prompt, if it has one.
        const gboolean stored = secret_password_store_sync(
            &itemSchema(), SECRET_COLLECTION_DEFAULT, label.constData(), secret.constData(),
            m_cancellable, &error, "service", service.constData(), "account", account.constData(),
            static_cast<const char *>(nullptr));
        secret.fill('\0');
        if (stored) {
            Q_EMIT finished(true, {});
            return;
        }
        const bool noService = isMissingService(error);
        qCWarning(lcAccount).noquote()
            << QStringLiteral("[QuonBrix] keyring: could not store %1: %2")
                   .arg(m_account, QString::fromUtf8(error ? error->message : "no reason given"));
        g_clear_error(&error);
        // Drop libsecret's cached connection: a keyring started since then does not know its
        // session, and every later store would fail the same way.
        secret_service_disconnect();
        Q_EMIT finished(false,
                        noService ? tokens::saveFailed + kNoServiceHint : tokens::saveFailed);
    }

Q_SIGNALS:
    void finished(bool ok, const QString &error);

private:
    QString m_account;
    QString m_secret;
    GCancellable *m_cancellable;
};

} // namespace

struct SecretServiceTokenStore::Worker {
    QThread thread;
    GCancellable *cancellable = g_cancellable_new();
};

SecretServiceTokenStore::SecretServiceTokenStore()
    : m_worker(new Worker) {
    m_worker->thread.setObjectName(QStringLiteral("keyring"));
    m_worker->thread.start();
}

SecretServiceTokenStore::~SecretServiceTokenStore() {
    // An unlock prompt nobody answers would otherwise hold the thread, and the app, forever.
    g_cancellable_cancel(m_worker->cancellable);
    m_worker->thread.quit();
    m_worker->thread.wait();
    g_object_unref(m_worker->cancellable);
    delete m_worker;
}

void SecretServiceTokenStore::store(const QString &account, const QString &secret, QObject *context,
                                    std::function<void(std::optional<QString> error)> done) {
    auto *job = new StoreJob(account, secret, m_worker->cancellable);
    if (context) {
        QObject::connect(job, &StoreJob::finished, context,
                         [done = std::move(done)](bool ok, const QString &error) {
                             if (done)
                                 done(ok ? std::nullopt : std::optional<QString>(error));
                         });
    }
    job->moveToThread(&m_worker->thread);
    // Jobs still queued when the store goes are freed with the thread.
    QObject::connect(&m_worker->thread, &QThread::finished, job, &QObject::deleteLater);
    QMetaObject::invokeMethod(
        job,
        [job] {
            job->run();
            job->deleteLater();
        },
        Qt::QueuedConnection);
}

} // namespace quonbrix

#include "secret_service_token_store.moc"

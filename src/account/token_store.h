#pragma once

#include <QObject>
#include <QString>
#include <functional>
#include <optional>

namespace quonbrix {

// Where the sign-in tokens go: one secret per account name under the service the daemon looks
// them up by. Storing again replaces. Answers come on the thread that asked, never blocking it.
class TokenStore {
public:
    virtual ~TokenStore() = default;
    // `done` gets nothing on success, else the user-facing message. Not called when `context`
    // is gone by then.
    virtual void store(const QString &account, const QString &secret, QObject *context,
                       std::function<void(std::optional<QString> error)> done) = 0;
};

namespace tokens {
// The service both the app and the daemon use; its last component is "shared".
inline const QString service = QStringLiteral("app.quonbrix.shared");
inline const QString refreshAccount = QStringLiteral("quon-brix-refresh");
inline const QString accessAccount = QStringLiteral("quon-brix");
inline const QString saveFailed =
    QStringLiteral("Could not save sign-in credentials to the keyring");
} // namespace tokens

// The desktop's Secret Service (GNOME Keyring, KDE Wallet, KeePassXC) through libsecret, with
// the item schema the daemon's runtime reads: "com.oven-sh.bun.Secret", attributes `service`
// and `account`, label "service/account". Calls run on a worker thread of its own.
class SecretServiceTokenStore final : public TokenStore {
public:
    SecretServiceTokenStore();
    ~SecretServiceTokenStore() override;
    void store(const QString &account, const QString &secret, QObject *context,
               std::function<void(std::optional<QString> error)> done) override;

private:
    struct Worker;
    Worker *m_worker;
};

} // namespace quonbrix

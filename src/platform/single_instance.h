#pragma once

#include <QDBusConnection>
#include <QObject>

namespace quonbrix {

// One QuonBrix per user session. The first instance owns a well-known name on the session
// bus; a later one asks it to show itself and then leaves.
class SingleInstance : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "app.quonbrix.QuonBrix")

public:
    static inline const QString serviceName = QStringLiteral("app.quonbrix.QuonBrix");
    static inline const QString objectPath = QStringLiteral("/app/quonbrix/QuonBrix");

    enum class Claim {
        Primary,        // this process owns the name and answers Activate
        ActivatedOther, // another instance runs and was asked to show itself
        NoBus,          // no session bus: nothing to coordinate with, run anyway
    };

    explicit SingleInstance(QDBusConnection bus, QObject *parent = nullptr);
    ~SingleInstance() override;

    Claim claim();
    // Tells the running instance, if any, that a sign-in finished; false when none answered.
    static bool reportSignIn(QDBusConnection bus);

public Q_SLOTS:
    // Called over D-Bus by a second instance.
    Q_SCRIPTABLE void Activate();
    // Called over D-Bus by `quonbrix signin` once a sign-in from a terminal has finished.
    Q_SCRIPTABLE void SignedIn();

Q_SIGNALS:
    void activationRequested();
    void signedInElsewhere();

private:
    QDBusConnection m_bus;
    bool m_owner = false;
};

} // namespace quonbrix

#pragma once

#include "account/enroll_records.h"
#include "account/enroller.h"
#include "account/token_store.h"
#include "platform/clock.h"
#include "platform/environment.h"

#include <QObject>
#include <chrono>
#include <functional>

class QNetworkAccessManager;
class QJsonObject;

namespace quonbrix {

// The account API's answers, read apart from the network so that any body can be tried on them.
namespace deviceflow {

// /device/start: the code to poll with, the code and page to show, and the timing in seconds
// (900 and 5 when absent or not whole numbers; the interval at least 1). Absent when a string
// is missing.
struct Started {
    QString deviceCode;
    QString userCode;
    QString page; // verification_uri_complete, else verification_uri
    qint64 lifetimeSeconds = 0;
    qint64 intervalSeconds = 0;
};
std::optional<Started> readStart(const QJsonObject &answer);

// One /device/poll answer: both tokens, wait on, wait longer, or the message to end with.
struct PollAnswer {
    enum class Kind { Approved, Pending, SlowDown, Failed };
    Kind kind = Kind::Failed;
    QString access;
    QString refresh;
    QString message; // Failed only
};
PollAnswer readPoll(int httpStatus, const QJsonObject &answer);

} // namespace deviceflow

// Signs this computer in to the account service with the OAuth device flow: shows a code and a
// page, polls until the user approves in the browser, looks the account up, stores both tokens
// in the token store and writes ~/.quon-brix/enrollment.json last (0600 in a 0700 folder), the
// file the daemon reads at start. Runs on the GUI thread without blocking it; waits between
// polls go through `wait`, so tests need not sleep.
class DeviceFlowEnroller : public QObject, public Enroller {
    Q_OBJECT

public:
    // Calls `then` after `delay` unless `context` is gone.
    using Wait = std::function<void(std::chrono::seconds delay, QObject *context,
                                    std::function<void()> then)>;
    struct Options {
        Environment env;              // QUON_ACCOUNT_API_BASE, QUON_CONSOLE_URL, HOME
        TokenStore *tokens = nullptr; // must outlive the enroller
        const Clock *clock = &SystemClock::instance();
        Wait wait; // empty: a real timer
        std::chrono::milliseconds requestTimeout{15'000};
    };

    explicit DeviceFlowEnroller(Options options, QObject *parent = nullptr);
    ~DeviceFlowEnroller() override;

    // Starts a sign-in, cancelling one that runs. Exactly one of `onDone` and `onError` is
    // called at the end, after `onPrompt` once the code is known; a cancelled run calls nothing.
    void run(std::function<void(const EnrollPrompt &)> onPrompt, std::function<void()> onDone,
             std::function<void(const QString &message)> onError) override;
    void cancel() override;
    bool isRunning() const;

    // The account API: QUON_ACCOUNT_API_BASE when it starts with "http" (one trailing "/"
    // removed), else the product's own (https://api.quon.app).
    QString apiBase() const;
    // For an API on localhost or 127.0.0.1 (local development) the approval page is the web
    // console's "/activate?code=" page (Environment::consoleBase()), the code appended as it
    // is; any other URL stays as it is.
    static QString rewriteVerificationForLocalDev(const QString &url, const QString &apiBase,
                                                  const QString &userCode, const Environment &env);

private:
    struct Run;
    Options m_options;
    QNetworkAccessManager *m_network;
    Run *m_run = nullptr; // the running sign-in; deleting it cancels it
};

} // namespace quonbrix

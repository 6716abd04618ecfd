#pragma once

// A stand-in for the account service's device sign-in (the OAuth 2.0 device authorization
// grant, RFC 8628) as the app's sign-in uses it, and the approval page a person opens in the
// browser. Each sign-in gets a device code and a user code; its polls answer
// authorization_pending until the code is approved or denied on the page (or by the script),
// and then the tokens, once, or access_denied. The script turns on every other answer the app
// has to cope with, so each of its messages can be shown on demand.

#include "api.h"

#include "platform/clock.h"

#include <QHash>
#include <QSet>
#include <optional>

namespace quonbrix::sim {

struct AccountScript {
    int interval = 5;           // seconds, as the start answer states it
    int slowDowns = 0;          // the first polls of a sign-in answer slow_down
    std::optional<int> pending; // then this many authorization_pending before the code decides
                                // itself; absent: until someone uses the approval page
    bool deny = false;          // the code decides itself as refused (without `pending`, at once)
    bool expired = false;       // the code is past its lifetime from the first poll on
    bool tls = false;           // polls fail as if a TLS-inspecting proxy broke them
    std::optional<int> startStatus;    // the start request fails with this HTTP status
    bool startGarbage = false;         // the start request gets a body that is not JSON
    bool pollHangs = false;            // polls get no answer at all
    std::optional<int> userinfoStatus; // the account lookup fails with this HTTP status
};

// Comma-separated items: pending=N, slow_down=N, deny, expired, tls, start=STATUS|garbage,
// poll=hang, userinfo=STATUS, interval=SECONDS. Empty text is the plain service. On an unknown
// or malformed item, `error` names it.
std::optional<AccountScript> parseAccountScript(const QString &text, QString *error);

class AccountApi {
public:
    // `baseUrl` is where this API is served ("http://127.0.0.1:8512"); the approval page is its
    // "/activate".
    AccountApi(AccountScript script, const Clock &clock, QString baseUrl);

    ApiReply handle(const ApiRequest &request);

private:
    enum class Decision { Open, Approved, Denied };
    struct SignIn {
        QString userCode;
        QDateTime expiresAt;
        int slowDownsLeft = 0;
        std::optional<int> pendingLeft;
        Decision decision = Decision::Open;
    };

    ApiReply start(const QByteArray &body);
    ApiReply poll(const QByteArray &body);
    ApiReply userinfo(const QByteArray &authorization) const;
    ApiReply activatePage(const QString &code);
    ApiReply decide(const QByteArray &formBody, Decision decision);
    // The open sign-in with this user code, compared the lenient way the page takes it.
    SignIn *byUserCode(const QString &code);
    QString newUserCode() const;

    AccountScript m_script;
    const Clock &m_clock;
    QString m_baseUrl;
    QHash<QString, SignIn> m_signIns; // by device code
    QSet<QString> m_accessTokens;
};

} // namespace quonbrix::sim

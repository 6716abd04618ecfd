#include "account_api.h"

#include "tokens.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <algorithm>

namespace quonbrix::sim {

namespace {

const QString clientId = QStringLiteral("quon-brix");
const QString deviceGrant = QStringLiteral("urn:ietf:params:oauth:grant-type:device_code");
// The words OpenSSL uses when a TLS-inspecting proxy re-signs the traffic with a root the
// system does not trust. The app shows a poll's error as "Sign-in error: " + error, and offers
// its terminal fallback for any message about certificates.
const QString tlsFailure = QStringLiteral("self signed certificate in certificate chain");
constexpr qint64 codeLifetimeSeconds = 900;
constexpr qint64 accessTokenSeconds = 3600;
// Sign-ins past their lifetime are kept this long to answer expired_token, then forgotten.
constexpr qint64 forgetAfterSeconds = 3600;
const QByteArray htmlType = QByteArrayLiteral("text/html; charset=utf-8");

QByteArray compact(const QJsonObject &o) {
    return QJsonDocument(o).toJson(QJsonDocument::Compact);
}

ApiReply oauthError(int status, const QString &error, const QString &summary) {
    return {status, compact({{QStringLiteral("error"), error}}), summary};
}

ApiReply page(int status, const QString &title, const QString &content, const QString &summary) {
    const QString html =
        QStringLiteral(
            "<!doctype html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
            "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
            "<title>%1 · brixd-sim</title><style>"
            "body{font:16px/1.5 system-ui,sans-serif;max-width:30em;margin:4em auto;padding:0 1em;"
            "color:#1d1d1f}"
            ".code{font:700 2em ui-monospace,monospace;letter-spacing:.1em;margin:.5em 0}"
            "form{display:inline}button{font:inherit;padding:.4em 1.4em;margin:0 .5em 0 0}"
            "input{font:inherit;text-transform:uppercase}.note{color:#6e6e73;font-size:.85em}"
            "</style></head><body><h1>%1</h1>%2"
            "<p class=\"note\">Stand-in account service of brixd-sim, for development and demos. "
            "Nothing leaves this computer.</p></body></html>\n")
            .arg(title.toHtmlEscaped(), content);
    return {status, html.toUtf8(), summary, htmlType};
}

ApiReply noSuchCode(const QString &code) {
    return page(404, QStringLiteral("Code not found"),
                QStringLiteral("<p>No sign-in waits for the code <b>%1</b>. A code lasts 15 "
                               "minutes and works once; start again from QuonBrix.</p>")
                    .arg(code.toHtmlEscaped()),
                QStringLiteral("no sign-in waits for that code"));
}

// Upper case, letters and digits only: "wdjb mjht" is "WDJB-MJHT".
QString normalized(const QString &userCode) {
    QString out;
    for (const QChar c : userCode) {
        if (c.isLetterOrNumber())
            out += c.toUpper();
    }
    return out;
}

std::optional<int> number(const QString &text, int low, int high) {
    bool ok = false;
    const int n = text.toInt(&ok);
    if (!ok || n < low || n > high)
        return std::nullopt;
    return n;
}

} // namespace

std::optional<AccountScript> parseAccountScript(const QString &text, QString *error) {
    AccountScript s;
    for (const QString &raw : text.split(u',', Qt::SkipEmptyParts)) {
        const QString item = raw.trimmed();
        const QString key = item.section(u'=', 0, 0);
        const std::optional<QString> value =
            item.contains(u'=') ? std::optional(item.section(u'=', 1)) : std::nullopt;
        const auto count = [&] { return number(value.value_or(QString()), 0, 1000); };
        const auto httpError = [&] { return number(value.value_or(QString()), 400, 599); };
        if (!value && key == u"deny")
            s.deny = true;
        else if (!value && key == u"expired")
            s.expired = true;
        else if (!value && key == u"tls")
            s.tls = true;
        else if (key == u"pending" && count())
            s.pending = count();
        else if (key == u"slow_down" && count())
            s.slowDowns = *count();
        else if (key == u"interval" && number(value.value_or(QString()), -3600, 3600))
            s.interval = value->toInt();
        else if (key == u"start" && value == u"garbage")
            s.startGarbage = true;
        else if (key == u"start" && httpError())
            s.startStatus = httpError();
        else if (key == u"poll" && value == u"hang")
            s.pollHangs = true;
        else if (key == u"userinfo" && httpError())
            s.userinfoStatus = httpError();
        else {
            if (error)
                *error = QStringLiteral(
                             "unknown account script item \"%1\" (pending=N, slow_down=N, deny, "
                             "expired, tls, start=STATUS|garbage, poll=hang, userinfo=STATUS, "
                             "interval=SECONDS)")
                             .arg(item);
            return std::nullopt;
        }
    }
    return s;
}

AccountApi::AccountApi(AccountScript script, const Clock &clock, QString baseUrl)
    : m_script(std::move(script))
    , m_clock(clock)
    , m_baseUrl(std::move(baseUrl)) {}

ApiReply AccountApi::handle(const ApiRequest &request) {
    const bool get = request.method == "GET";
    const bool post = request.method == "POST";
    const QString &path = request.path;

    if (post && path == u"/v1/auth/device/start")
        return start(request.body);
    if (post && path == u"/v1/auth/device/poll")
        return poll(request.body);
    if (get && path == u"/v1/auth/device/userinfo")
        return userinfo(request.authorization);
    if (get && path == u"/activate")
        return activatePage(
            request.query.queryItemValue(QStringLiteral("code"), QUrl::FullyDecoded));
    if (post && path == u"/activate/approve")
        return decide(request.body, Decision::Approved);
    if (post && path == u"/activate/deny")
        return decide(request.body, Decision::Denied);
    // The app sends its console links here too when it is pointed at this stand-in.
    if (get && (path == u"/" || path == u"/local"))
        return page(200, QStringLiteral("No web console here"),
                    QStringLiteral("<p>This address serves only the sign-in approval page, at "
                                   "<a href=\"/activate\">/activate</a>. The web console is not "
                                   "part of the stand-in.</p>"),
                    QStringLiteral("console page"));
    return oauthError(404, QStringLiteral("not_found"), QStringLiteral("no such endpoint"));
}

ApiReply AccountApi::start(const QByteArray &body) {
    if (m_script.startStatus)
        return oauthError(*m_script.startStatus, QStringLiteral("server_error"),
                          QStringLiteral("start failed, as scripted"));
    if (m_script.startGarbage)
        return {200,
                QByteArrayLiteral("<html><body>Log in to the guest network to continue."
                                  "</body></html>\n"),
                QStringLiteral("start answered with a page that is not JSON, as scripted"),
                htmlType};
    if (QJsonDocument::fromJson(body).object().value(u"client_id").toString() != clientId)
        return oauthError(400, QStringLiteral("invalid_client"),
                          QStringLiteral("start refused: client_id is not quon-brix"));

    const QDateTime now = m_clock.now();
    for (auto it = m_signIns.begin(); it != m_signIns.end();)
        it = it->expiresAt.addSecs(forgetAfterSeconds) < now ? m_signIns.erase(it) : std::next(it);
    SignIn signIn;
    signIn.userCode = newUserCode();
    signIn.expiresAt = m_script.expired ? now : now.addSecs(codeLifetimeSeconds);
    signIn.slowDownsLeft = m_script.slowDowns;
    signIn.pendingLeft = m_script.deny ? m_script.pending.value_or(0) : m_script.pending;
    const QString deviceCode = randomToken();
    const QString page = m_baseUrl + QStringLiteral("/activate");
    const QJsonObject reply{
        {QStringLiteral("device_code"), deviceCode},
        {QStringLiteral("user_code"), signIn.userCode},
        {QStringLiteral("verification_uri"), page},
        {QStringLiteral("verification_uri_complete"),
         page + QStringLiteral("?code=") + signIn.userCode},
        {QStringLiteral("expires_in"), codeLifetimeSeconds},
        {QStringLiteral("interval"), m_script.interval},
    };
    m_signIns.insert(deviceCode, signIn);
    return {200, compact(reply), QStringLiteral("sign-in started, waiting for approval")};
}

ApiReply AccountApi::poll(const QByteArray &body) {
    if (m_script.pollHangs) {
        ApiReply held;
        held.hold = true;
        held.summary = QStringLiteral("as scripted");
        return held;
    }
    if (m_script.tls)
        return oauthError(502, tlsFailure,
                          QStringLiteral("poll broken as by a TLS-inspecting proxy, as scripted"));
    const QUrlQuery form(QString::fromUtf8(body));
    const auto field = [&](const QString &key) {
        return form.queryItemValue(key, QUrl::FullyDecoded);
    };
    if (field(QStringLiteral("grant_type")) != deviceGrant)
        return oauthError(400, QStringLiteral("unsupported_grant_type"),
                          QStringLiteral("poll refused: not the device-code grant"));
    if (field(QStringLiteral("client_id")) != clientId)
        return oauthError(401, QStringLiteral("invalid_client"),
                          QStringLiteral("poll refused: client_id is not quon-brix"));
    const auto it = m_signIns.find(field(QStringLiteral("device_code")));
    if (it == m_signIns.end())
        return oauthError(400, QStringLiteral("invalid_grant"),
                          QStringLiteral("poll for a device code that is unknown or used up"));

    SignIn &signIn = *it;
    if (m_clock.now() >= signIn.expiresAt)
        return oauthError(400, QStringLiteral("expired_token"), QStringLiteral("code expired"));
    if (signIn.slowDownsLeft > 0) {
        --signIn.slowDownsLeft;
        return oauthError(400, QStringLiteral("slow_down"), QStringLiteral("asked to slow down"));
    }
    QString how = QStringLiteral("on the approval page");
    if (signIn.decision == Decision::Open && signIn.pendingLeft) {
        if (*signIn.pendingLeft == 0) {
            signIn.decision = m_script.deny ? Decision::Denied : Decision::Approved;
            how = QStringLiteral("by the script");
        } else {
            --*signIn.pendingLeft;
        }
    }
    switch (signIn.decision) {
    case Decision::Open:
        return oauthError(400, QStringLiteral("authorization_pending"),
                          QStringLiteral("still waiting for approval"));
    case Decision::Denied:
        return oauthError(400, QStringLiteral("access_denied"), QStringLiteral("denied ") + how);
    case Decision::Approved:
        break;
    }
    const QString accessToken = randomToken();
    m_accessTokens.insert(accessToken);
    m_signIns.erase(it); // a device code buys one pair of tokens
    return {200,
            compact({{QStringLiteral("access_token"), accessToken},
                     {QStringLiteral("refresh_token"), randomToken()},
                     {QStringLiteral("token_type"), QStringLiteral("Bearer")},
                     {QStringLiteral("expires_in"), accessTokenSeconds}}),
            QStringLiteral("approved %1, tokens issued").arg(how)};
}

ApiReply AccountApi::userinfo(const QByteArray &authorization) const {
    if (m_script.userinfoStatus)
        return oauthError(*m_script.userinfoStatus, QStringLiteral("server_error"),
                          QStringLiteral("account lookup failed, as scripted"));
    const QByteArray scheme = QByteArrayLiteral("bearer ");
    const bool bearer = authorization.left(scheme.size()).toLower() == scheme;
    const QString token =
        bearer ? QString::fromLatin1(authorization.mid(scheme.size()).trimmed()) : QString();
    if (token.isEmpty() || !m_accessTokens.contains(token))
        return oauthError(401, QStringLiteral("invalid_token"),
                          QStringLiteral("account lookup without a valid access token"));
    return {200,
            compact({{QStringLiteral("org_id"), QStringLiteral("org_sim")},
                     {QStringLiteral("user_id"), QStringLiteral("user_sim")},
                     {QStringLiteral("org_name"), QStringLiteral("Stand-in Org")},
                     {QStringLiteral("email"), QStringLiteral("newcomer@example.com")}}),
            QStringLiteral("account looked up")};
}

ApiReply AccountApi::activatePage(const QString &code) {
    if (code.isEmpty())
        return page(200, QStringLiteral("Sign in QuonBrix"),
                    QStringLiteral("<p>Enter the code QuonBrix shows:</p>"
                                   "<form method=\"get\" action=\"/activate\">"
                                   "<input name=\"code\" size=\"10\" autofocus> "
                                   "<button>Continue</button></form>"),
                    QStringLiteral("code entry page"));
    const SignIn *signIn = byUserCode(code);
    if (!signIn)
        return noSuchCode(code);
    const QString shown = signIn->userCode.toHtmlEscaped();
    if (signIn->decision != Decision::Open)
        return page(200, QStringLiteral("Already answered"),
                    QStringLiteral("<p>The code <b>%1</b> was already %2.</p>")
                        .arg(shown, signIn->decision == Decision::Approved
                                        ? QStringLiteral("approved")
                                        : QStringLiteral("denied")),
                    QStringLiteral("approval page for a code already answered"));
    const QString form = QStringLiteral("<form method=\"post\" action=\"/activate/%1\">"
                                        "<input type=\"hidden\" name=\"code\" value=\"%2\">"
                                        "<button type=\"submit\">%3</button></form>");
    return page(200, QStringLiteral("Sign in QuonBrix"),
                QStringLiteral("<p>QuonBrix on this computer asks to be linked to your account. "
                               "Check that it shows this code:</p><p class=\"code\">%1</p>"
                               "<p>%2 %3</p>")
                    .arg(shown,
                         form.arg(QStringLiteral("approve"), shown, QStringLiteral("Approve")),
                         form.arg(QStringLiteral("deny"), shown, QStringLiteral("Deny"))),
                QStringLiteral("approval page"));
}

ApiReply AccountApi::decide(const QByteArray &formBody, Decision decision) {
    // Browsers send a form's spaces as "+".
    QByteArray decoded = formBody;
    decoded.replace('+', ' ');
    const QString code = QUrlQuery(QString::fromUtf8(decoded))
                             .queryItemValue(QStringLiteral("code"), QUrl::FullyDecoded);
    SignIn *signIn = byUserCode(code);
    if (!signIn)
        return noSuchCode(code);
    const bool approve = decision == Decision::Approved;
    if (signIn->decision != Decision::Open)
        return activatePage(code); // says how it was answered; a second click changes nothing
    signIn->decision = decision;
    return approve
               ? page(200, QStringLiteral("Approved"),
                      QStringLiteral("<p>QuonBrix finishes signing in by itself within a few "
                                     "seconds. You can close this page.</p>"),
                      QStringLiteral("approved on the page"))
               : page(200, QStringLiteral("Denied"),
                      QStringLiteral("<p>This computer was not linked to your account. QuonBrix "
                                     "shows that the sign-in was denied.</p>"),
                      QStringLiteral("denied on the page"));
}

AccountApi::SignIn *AccountApi::byUserCode(const QString &code) {
    const QString wanted = normalized(code);
    const QDateTime now = m_clock.now();
    for (SignIn &signIn : m_signIns) {
        if (!wanted.isEmpty() && normalized(signIn.userCode) == wanted && now < signIn.expiresAt)
            return &signIn;
    }
    return nullptr;
}

QString AccountApi::newUserCode() const {
    // Consonants only, as RFC 8628 suggests: no words, nothing to misread.
    static const QString letters = QStringLiteral("BCDFGHJKLMNPQRSTVWXZ");
    for (;;) {
        QString code;
        for (int i = 0; i < 8; ++i) {
            if (i == 4)
                code += u'-';
            code += letters.at(QRandomGenerator::system()->bounded(int(letters.size())));
        }
        const bool taken = std::any_of(m_signIns.cbegin(), m_signIns.cend(),
                                       [&](const SignIn &s) { return s.userCode == code; });
        if (!taken)
            return code;
    }
}

} // namespace quonbrix::sim

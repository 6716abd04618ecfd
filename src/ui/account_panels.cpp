#include "ui/account_panels.h"

namespace quonbrix {

namespace {

// Until the daemon reports the sign-in, a finished one still counts as running: the daemon is
// restarting to pick it up.
bool signingIn(const std::optional<EnrollProgress> &progress) {
    return progress && progress->state != QLatin1String("error");
}

} // namespace

bool isSignedIn(const std::optional<DaemonStatus> &status) {
    return status && status->enrolled;
}

view::Button headerSignInButton(const std::optional<EnrollProgress> &progress) {
    const bool pending = signingIn(progress);
    return {pending ? QStringLiteral("Signing in") : QStringLiteral("Sign in"),
            view::symbolUrl(QStringLiteral("person.crop.circle.badge.plus")),
            QStringLiteral("Sign in for cloud history and team sharing"), !pending};
}

view::SignIn signInPanel(const std::optional<EnrollProgress> &progress) {
    view::SignIn panel;
    if (!progress || progress->state == QLatin1String("done"))
        return panel;
    panel.shown = true;
    if (progress->state == QLatin1String("pending")) {
        panel.waiting = !progress->prompt;
        if (progress->prompt) {
            panel.promptText = QStringLiteral("Enter this code on the quon approval page:");
            panel.userCode = progress->prompt->userCode;
            panel.openPage = {QStringLiteral("Open approval page"),
                              view::symbolUrl(QStringLiteral("arrow.up.right.square")), QString(),
                              true};
            panel.again = {QStringLiteral("Sign in again"), QString(),
                           QStringLiteral("Cancel this approval code and start a new sign-in"),
                           true};
        }
        return panel;
    }
    panel.errorTitle = QStringLiteral("Sign-in failed");
    panel.errorText = progress->error.value_or(QStringLiteral("Unknown error"));
    panel.errorSymbol = view::symbolUrl(QStringLiteral("exclamationmark.triangle"));
    panel.retry = {QStringLiteral("Try again"), QString(), QString(), true};
    if (StatusModel::isTLSInterceptError(progress->error)) {
        panel.terminalText =
            QStringLiteral("Your network inspects secure traffic. Finish sign-in from a terminal:");
        panel.copyCommand = {QStringLiteral("Copy terminal sign-in command"),
                             view::symbolUrl(QStringLiteral("terminal")), QString(), true};
        panel.terminalNote =
            QStringLiteral("Paste it in a terminal; this app finishes sign-in after approval.");
    }
    return panel;
}

view::SignOut signOutConfirmation() {
    return {QStringLiteral("サインアウトしますか？"),
            QStringLiteral("このコンピューターの quon 連携を解除します。ローカル計測は続きますが、"
                           "クラウド同期・チーム共有は止まります。再開するにはもう一度サインイン"
                           "してください。"),
            QStringLiteral("キャンセル"), QStringLiteral("サインアウト")};
}

} // namespace quonbrix

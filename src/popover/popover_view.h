#pragma once

#include "popover/record_list_model.h"
#include "popover_link/popover_records.h"

#include <QObject>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

namespace quonbrix {

// Everything the popover window binds to: the sections the tray process words, as maps, and
// their rows, as list models. What the user does goes back to the tray as commands.
class PopoverView : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("made by the popover process")

    Q_PROPERTY(QVariantMap header READ header NOTIFY headerChanged)
    Q_PROPERTY(QVariantMap signIn READ signIn NOTIFY signInChanged)
    Q_PROPERTY(QVariantMap signOut READ signOut NOTIFY signOutChanged)
    // The sign-out confirmation is on screen (view state: it starts closed in every popover).
    Q_PROPERTY(bool confirmingSignOut READ confirmingSignOut NOTIFY confirmingSignOutChanged)
    Q_PROPERTY(QVariantMap limits READ limits NOTIFY limitsChanged)
    Q_PROPERTY(quonbrix::RecordListBase *limitGroups READ limitGroups CONSTANT)
    Q_PROPERTY(QVariantMap today READ today NOTIFY todayChanged)
    Q_PROPERTY(quonbrix::RecordListBase *todayColumns READ todayColumns CONSTANT)
    Q_PROPERTY(quonbrix::RecordListBase *sourceShares READ sourceShares CONSTANT)
    Q_PROPERTY(QVariantMap work READ work NOTIFY workChanged)
    Q_PROPERTY(quonbrix::RecordListBase *timers READ timers CONSTANT)
    Q_PROPERTY(QVariantMap projects READ projects NOTIFY projectsChanged)
    Q_PROPERTY(quonbrix::RecordListBase *projectRows READ projectRows CONSTANT)
    Q_PROPERTY(QVariantMap sharing READ sharing NOTIFY sharingChanged)
    Q_PROPERTY(QVariantMap settings READ settings NOTIFY settingsChanged)
    Q_PROPERTY(quonbrix::RecordListBase *setupRows READ setupRows CONSTANT)
    // View state: the settings group starts collapsed and the main screen shows in every
    // popover.
    Q_PROPERTY(bool settingsExpanded READ settingsExpanded NOTIFY settingsExpandedChanged)
    // "main", "mcp" (connect an AI client) or "guide" (the setup guide).
    Q_PROPERTY(QString screen READ screen NOTIFY screenChanged)
    Q_PROPERTY(QVariantMap mcp READ mcp NOTIFY mcpChanged)
    Q_PROPERTY(quonbrix::RecordListBase *mcpClients READ mcpClients CONSTANT)
    Q_PROPERTY(QVariantMap guide READ guide NOTIFY guideChanged)
    Q_PROPERTY(quonbrix::RecordListBase *guideSteps READ guideSteps CONSTANT)
    Q_PROPERTY(QVariantMap footer READ footer NOTIFY footerChanged)

public:
    explicit PopoverView(QObject *parent = nullptr);

    // Takes the sections present in `state`; the others stay as they are.
    void apply(const view::PopoverState &state);

    QVariantMap header() const { return m_header; }
    QVariantMap signIn() const { return m_signIn; }
    QVariantMap signOut() const { return m_signOut; }
    bool confirmingSignOut() const { return m_confirmingSignOut; }
    QVariantMap limits() const { return m_limits; }
    RecordListBase *limitGroups() { return &m_limitGroups; }
    QVariantMap today() const { return m_today; }
    RecordListBase *todayColumns() { return &m_todayColumns; }
    RecordListBase *sourceShares() { return &m_sourceShares; }
    QVariantMap work() const { return m_work; }
    RecordListBase *timers() { return &m_timers; }
    QVariantMap projects() const { return m_projects; }
    RecordListBase *projectRows() { return &m_projectRows; }
    QVariantMap sharing() const { return m_sharing; }
    QVariantMap settings() const { return m_settings; }
    RecordListBase *setupRows() { return &m_setupRows; }
    bool settingsExpanded() const { return m_settingsExpanded; }
    QString screen() const { return m_screen; }
    QVariantMap mcp() const { return m_mcp; }
    RecordListBase *mcpClients() { return &m_mcpClients; }
    QVariantMap guide() const { return m_guide; }
    RecordListBase *guideSteps() { return &m_guideSteps; }
    QVariantMap footer() const { return m_footer; }

    // Back to the main screen with the settings group collapsed: the popover was closed.
    void resetScreens();

    Q_INVOKABLE void syncNow();
    Q_INVOKABLE void startTimer(const QString &label);
    Q_INVOKABLE void timerAction(const QString &action, const QString &id);
    Q_INVOKABLE void openWorkspace();
    Q_INVOKABLE void openMeter();
    Q_INVOKABLE void quit();
    Q_INVOKABLE void startSignIn();
    Q_INVOKABLE void openApprovalPage();
    Q_INVOKABLE void copySignInCommand();
    Q_INVOKABLE void askSignOut();
    Q_INVOKABLE void cancelSignOut();
    Q_INVOKABLE void confirmSignOut();
    // Escape: a confirmation on screen is dismissed, else the popover closes.
    Q_INVOKABLE void escape();
    Q_INVOKABLE void toggleSettings();
    // A settings row's button, by the row's action name.
    Q_INVOKABLE void setupAction(const QString &action);
    Q_INVOKABLE void showGuide();
    Q_INVOKABLE void back();
    Q_INVOKABLE void selectMcpClient(const QString &client);
    Q_INVOKABLE void copyMcpSnippet();
    Q_INVOKABLE void installMcpClient(const QString &client);

Q_SIGNALS:
    void commandRequested(const quonbrix::view::UserCommand &command);
    void closeRequested();
    // The panels go back to their top (a new popover, another screen).
    void scrolledToTop();
    void headerChanged();
    void signInChanged();
    void signOutChanged();
    void confirmingSignOutChanged();
    void limitsChanged();
    void todayChanged();
    void workChanged();
    void projectsChanged();
    void sharingChanged();
    void settingsChanged();
    void settingsExpandedChanged();
    void screenChanged();
    void mcpChanged();
    void guideChanged();
    void footerChanged();

private:
    void request(view::Command command, std::optional<QString> label = std::nullopt,
                 std::optional<QString> action = std::nullopt,
                 std::optional<QString> id = std::nullopt);

    void setConfirmingSignOut(bool confirming);
    void setScreen(const QString &screen);

    QVariantMap m_header;
    QVariantMap m_signIn;
    QVariantMap m_signOut;
    bool m_confirmingSignOut = false;
    QVariantMap m_limits;
    RecordListModel<view::LimitGroup> m_limitGroups;
    QVariantMap m_today;
    RecordListModel<view::TodayColumn> m_todayColumns;
    RecordListModel<view::SourceShare> m_sourceShares;
    QVariantMap m_work;
    RecordListModel<view::Timer> m_timers;
    QVariantMap m_projects;
    RecordListModel<view::Project> m_projectRows;
    QVariantMap m_sharing;
    QVariantMap m_settings;
    RecordListModel<view::SetupRow> m_setupRows;
    bool m_settingsExpanded = false;
    QString m_screen = QStringLiteral("main");
    QVariantMap m_mcp;
    RecordListModel<view::McpClientRow> m_mcpClients;
    QVariantMap m_guide;
    RecordListModel<view::GuideStep> m_guideSteps;
    QVariantMap m_footer;
};

} // namespace quonbrix

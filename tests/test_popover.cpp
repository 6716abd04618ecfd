// The popover process as the tray drives it: its row models announce only what changed, it
// answers the tray's messages over a real pipe, and it renders what the tray words (offscreen),
// the stand-in daemon's "near limits" day included.

#include "app/app_core.h"
#include "popover/popover_app.h"
#include "popover/popover_placement.h"
#include "popover/portal_color_scheme.h"
#include "support/fake_daemon.h"
#include "support/quick_items.h"
#include "support/sim_process.h"
#include "ui/account_panels.h"
#include "ui/popover_presenter.h"

#include <QDBusConnection>
#include <QDBusVariant>
#include <QQmlEngineExtensionPlugin>
#include <QQuickItem>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <fcntl.h>
#include <unistd.h>

Q_IMPORT_QML_PLUGIN(QuonBrixPlugin)

using namespace quonbrix;
using quonbrix::test::visibleTexts;
using quonbrix::test::visualItems;

namespace {

// "a:1 b:2": projects labelled a and b with figures "1" and "2".
std::vector<view::Project> projects(const QString &text) {
    std::vector<view::Project> out;
    for (const QString &p : text.split(u' ', Qt::SkipEmptyParts))
        out.push_back({p.section(u':', 0, 0), p.section(u':', 1), QStringLiteral("help")});
    return out;
}

// What a model announces, one entry per signal: "changed 1 figures", "inserted 2", …
std::shared_ptr<QStringList> announcements(QAbstractItemModel &model) {
    auto log = std::make_shared<QStringList>();
    const auto names = model.roleNames();
    QObject::connect(
        &model, &QAbstractItemModel::dataChanged,
        [log, names](const QModelIndex &from, const QModelIndex &, const QList<int> &roles) {
            QStringList changed;
            for (int r : roles)
                changed << QString::fromLatin1(names.value(r));
            *log << QStringLiteral("changed %1 %2").arg(from.row()).arg(changed.join(u','));
        });
    QObject::connect(&model, &QAbstractItemModel::rowsInserted,
                     [log](const QModelIndex &, int first) {
                         *log << QStringLiteral("inserted %1").arg(first);
                     });
    QObject::connect(
        &model, &QAbstractItemModel::rowsRemoved,
        [log](const QModelIndex &, int first) { *log << QStringLiteral("removed %1").arg(first); });
    QObject::connect(&model, &QAbstractItemModel::rowsMoved,
                     [log](const QModelIndex &, int from, int, const QModelIndex &, int to) {
                         *log << QStringLiteral("moved %1>%2").arg(from).arg(to);
                     });
    QObject::connect(&model, &QAbstractItemModel::modelReset,
                     [log] { *log << QStringLiteral("reset"); });
    return log;
}

// The model's rows read back through its roles, as "label:figures".
QString shown(const RecordListModel<view::Project> &model) {
    QStringList rows;
    const auto names = model.roleNames();
    for (int i = 0; i < model.rowCount(); ++i)
        rows << model.data(model.index(i), names.key("label")).toString() + u':' +
                    model.data(model.index(i), names.key("figures")).toString();
    return rows.join(u' ');
}

// Both ends of a pipe, closed when done.
struct Pipe {
    int read = -1;
    int write = -1;
    Pipe() {
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) == 0) {
            read = fds[0];
            write = fds[1];
        }
    }
    ~Pipe() {
        for (int fd : {read, write})
            if (fd >= 0)
                ::close(fd);
    }
    void closeWrite() {
        ::close(write);
        write = -1;
    }
};

// The popover process's side of the pipes, run in this process.
struct PopoverRig {
    Pipe toPopover;
    Pipe fromPopover;
    PopoverApp app;
    view::LineReader reader;
    QList<view::FromPopover> received;

    explicit PopoverRig(std::chrono::milliseconds linger = std::chrono::seconds(30))
        : app({toPopover.read, fromPopover.write, linger}) {
        ::fcntl(fromPopover.read, F_SETFL, O_NONBLOCK);
    }
    void send(const QByteArray &line) {
        QVERIFY(::write(toPopover.write, line.constData(), size_t(line.size())) == line.size());
    }
    void send(const view::ToPopover &message) { send(view::encodeLine(message)); }
    // Waits for the next message from the popover.
    std::optional<view::FromPopover> next(int timeoutMs = 5000) {
        QElapsedTimer waited;
        waited.start();
        while (received.isEmpty() && waited.elapsed() < timeoutMs) {
            char buffer[4096];
            const ssize_t n = ::read(fromPopover.read, buffer, sizeof buffer);
            if (n > 0)
                reader.feed(QByteArrayView(buffer, n), [this](QByteArrayView line) {
                    if (auto m = view::decodeLine<view::FromPopover>(line))
                        received << *m;
                });
            else
                QTest::qWait(10);
        }
        if (received.isEmpty())
            return std::nullopt;
        return received.takeFirst();
    }
};

// The desktop portal's settings, as GNOME and KDE publish the colour scheme. Its Read answers
// with the value wrapped twice, as the real portal's does.
class FakeSettingsPortal : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Settings")

public:
    uint scheme = 1;

public Q_SLOTS:
    QDBusVariant Read(const QString &group, const QString &key) {
        if (group != QLatin1String("org.freedesktop.appearance") ||
            key != QLatin1String("color-scheme"))
            return {};
        return QDBusVariant(QVariant::fromValue(QDBusVariant(scheme)));
    }

Q_SIGNALS:
    void SettingChanged(const QString &group, const QString &key, const QDBusVariant &value);
};

} // namespace

class PopoverTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void rowsAnnounceOnlyWhatChanged_data();
    void rowsAnnounceOnlyWhatChanged();
    void groupRowsUpdateInPlace();
    void answersTheTrayOverItsPipe();
    void endsWhenTheTrayGoesOrAfterLingering();
    void placement_data();
    void placement();
    void signOutAsksFirst();
    void nearLimitsDayRenders();
    void followsTheDesktopColorScheme();
};

void PopoverTest::rowsAnnounceOnlyWhatChanged_data() {
    QTest::addColumn<QString>("before");
    QTest::addColumn<QString>("after");
    QTest::addColumn<QString>("announced");
    const auto row = [](const char *name, const char *before, const char *after,
                        const char *announced) {
        QTest::newRow(name) << QString::fromLatin1(before) << QString::fromLatin1(after)
                            << QString::fromLatin1(announced);
    };
    row("one figure: that row, that role", "a:1 b:2 c:3", "a:1 b:5 c:3", "changed 1 figures");
    row("nothing changed: nothing said", "a:1 b:2", "a:1 b:2", "");
    row("a row goes", "a:1 b:2 c:3", "a:1 c:3", "removed 1");
    row("a row comes", "a:1 c:3", "a:1 b:2 c:3", "inserted 1");
    row("rows swap and one changes", "a:1 b:2", "b:4 a:1", "moved 1>0|changed 0 figures");
    row("same labels twice: the whole list", "a:1 a:2", "a:1 a:3", "reset");
}

void PopoverTest::rowsAnnounceOnlyWhatChanged() {
    QFETCH(QString, before);
    QFETCH(QString, after);
    QFETCH(QString, announced);
    RecordListModel<view::Project> model;
    model.update(projects(before));
    const auto log = announcements(model);
    model.update(projects(after));
    QCOMPARE(log->join(u'|'), announced);
    QCOMPARE(shown(model), after);
}

void PopoverTest::groupRowsUpdateInPlace() {
    RecordListModel<view::LimitGroup> groups;
    view::LimitGroup codex{
        QStringLiteral("codex"), QStringLiteral("Codex"), QStringLiteral("#10a37f"), {}, {}};
    codex.rows = {
        {QStringLiteral("5h window"), {}, 0.5, QStringLiteral("50%"), {}, false, {}, {}, {}},
        {QStringLiteral("Weekly"), {}, 0.2, QStringLiteral("20%"), {}, false, {}, {}, {}}};
    groups.update({codex});
    const int rowsRole = groups.roleNames().key("rows");
    auto *rows = qobject_cast<QAbstractItemModel *>(
        groups.data(groups.index(0), rowsRole).value<QObject *>());
    QVERIFY(rows);
    const auto groupLog = announcements(groups);
    const auto rowLog = announcements(*rows);

    codex.rows[1].percent = QStringLiteral("21%");
    groups.update({codex});
    // The weekly row says so; the group and its list object stay as they were.
    QCOMPARE(*groupLog, QStringList());
    QCOMPARE(*rowLog, QStringList{QStringLiteral("changed 1 percent")});
    QCOMPARE(groups.data(groups.index(0), rowsRole).value<QObject *>(), rows);
    QCOMPARE(rows->data(rows->index(1, 0), rows->roleNames().key("percent")).toString(),
             QStringLiteral("21%"));
}

void PopoverTest::answersTheTrayOverItsPipe() {
    test::FakeDaemon daemon;
    daemon.refuse();
    QTemporaryDir home;
    AppCore core(daemon.environment(home.path()), nullptr, {});
    PopoverPresenter presenter(&core.model(), {}, WebLinks::from({}), core.environment());
    PopoverRig rig;

    // Garbage from the tray is ignored; the next good line still works.
    rig.send(QByteArray("{not json\n"));
    rig.send({presenter.startShowing(), std::nullopt, std::nullopt});
    rig.send({std::nullopt,
              view::ShowRequest{QStringLiteral("popup"), false, view::Rect{1200, 0, 24, 24}},
              std::nullopt});
    const auto shown = rig.next();
    QVERIFY(shown && shown->visible == true);
    QVERIFY(rig.app.window().window()->flags().testFlag(Qt::FramelessWindowHint));
    // Before the daemon answers: header, "Starting meter…" and the footer only.
    const QStringList texts = visibleTexts(rig.app.window().window());
    for (const char *expected :
         {"quon-brix", "Starting", "Local meter daemon", "Starting meter…", "Quit"})
        QVERIFY2(texts.contains(QString::fromUtf8(expected)), qPrintable(texts.join(u'|')));
    QVERIFY(!texts.contains(QStringLiteral("Can I keep working?")));

    // A click goes back to the tray as a command, and only as that.
    QVERIFY(test::click(rig.app.window().window(), QStringLiteral("Quit")));
    const auto command = rig.next();
    QVERIFY(command && command->command);
    QCOMPARE(command->command->name, QStringLiteral("quit"));

    // A tray click on the open popover closes it.
    rig.send({std::nullopt, view::ShowRequest{QStringLiteral("popup"), true, std::nullopt},
              std::nullopt});
    const auto hidden = rig.next();
    QVERIFY(hidden && hidden->visible == false);
    QVERIFY(!rig.app.window().isVisible());
}

void PopoverTest::endsWhenTheTrayGoesOrAfterLingering() {
    {
        PopoverRig rig(std::chrono::milliseconds(300));
        QSignalSpy finished(&rig.app, &PopoverApp::finished);
        rig.send({std::nullopt, view::ShowRequest{QStringLiteral("window"), false, std::nullopt},
                  std::nullopt});
        QVERIFY(rig.next() == (view::FromPopover{true, std::nullopt, std::nullopt}));
        QTest::qWait(500);
        QCOMPARE(finished.count(), 0); // shown: it stays however long
        rig.send({std::nullopt, std::nullopt, true});
        QVERIFY(rig.next() == (view::FromPopover{false, std::nullopt, std::nullopt}));
        QVERIFY(finished.wait(2000));
    }
    PopoverRig rig;
    QSignalSpy finished(&rig.app, &PopoverApp::finished);
    rig.toPopover.closeWrite();
    QVERIFY(finished.wait(2000));
}

void PopoverTest::placement_data() {
    QTest::addColumn<QRect>("icon");
    QTest::addColumn<QPoint>("cursor");
    QTest::addColumn<QPoint>("expected");
    const QPoint noCursor(-1, -1);
    // Popover 360×400 on a 1280×800 screen whose panel takes the top 24 pixels.
    QTest::newRow("icon in a top panel: centred below it")
        << QRect(600, 0, 24, 24) << noCursor << QPoint(431, 30);
    QTest::newRow("icon at the right edge: kept on screen")
        << QRect(1256, 0, 24, 24) << noCursor << QPoint(914, 30);
    QTest::newRow("icon in a bottom panel: opens upwards")
        << QRect(600, 776, 24, 24) << noCursor << QPoint(431, 370);
    QTest::newRow("no icon geometry: at the pointer")
        << QRect() << QPoint(700, 300) << QPoint(520, 307);
    QTest::newRow("pointer near the left edge") << QRect() << QPoint(100, 10) << QPoint(6, 30);
    QTest::newRow("nothing known: top right corner") << QRect() << noCursor << QPoint(914, 30);
}

void PopoverTest::placement() {
    QFETCH(QRect, icon);
    QFETCH(QPoint, cursor);
    QFETCH(QPoint, expected);
    const QRect available(0, 24, 1280, 776);
    const QPoint at =
        popoverPosition(QSize(360, 400), icon.isNull() ? std::nullopt : std::optional<QRect>(icon),
                        cursor.x() < 0 ? std::nullopt : std::optional<QPoint>(cursor), available);
    QCOMPARE(at, expected);
    QVERIFY(available.contains(QRect(at, QSize(360, 400))));
}

void PopoverTest::signOutAsksFirst() {
    view::PopoverState state;
    state.header = view::Header{};
    state.header->loading = false;
    state.settings = view::Settings{};
    view::SetupRow account;
    account.action = view::toWire(view::SetupAction::SignOut);
    account.button = {QStringLiteral("Sign out"), {}, {}, true};
    state.settings->rows = {account};
    state.signOut = signOutConfirmation();
    PopoverView view;
    view.apply(state);
    QList<view::UserCommand> commands;
    connect(&view, &PopoverView::commandRequested, this,
            [&commands](const view::UserCommand &c) { commands << c; });
    PopoverWindow popover(&view);
    popover.open();
    QVERIFY(QTest::qWaitForWindowExposed(popover.window()));
    const auto click = [&popover](const QString &text) {
        return test::click(popover.window(), text);
    };
    const auto asked = [&popover] {
        return visibleTexts(popover.window()).contains(QStringLiteral("サインアウトしますか？"));
    };

    // The settings group opens first; asked first; "no" changes nothing; "yes" is the only
    // way to the command.
    QVERIFY(!click(QStringLiteral("Sign out")));
    view.toggleSettings();
    QVERIFY(!asked());
    QVERIFY(click(QStringLiteral("Sign out")));
    QVERIFY(asked());
    QVERIFY(click(QStringLiteral("キャンセル")));
    QVERIFY(!asked());
    QVERIFY(commands.isEmpty());
    QVERIFY(click(QStringLiteral("Sign out")));
    QVERIFY(click(QStringLiteral("サインアウト")));
    QVERIFY(!asked());
    QCOMPARE(commands.size(), 1);
    QCOMPARE(commands[0].name, QStringLiteral("signOut"));
    // The next popover starts with the group closed again.
    view.resetScreens();
    QTRY_VERIFY(!click(QStringLiteral("Sign out")));
}

void PopoverTest::nearLimitsDayRenders() {
    test::SimProcess sim;
    QVERIFY(sim.start({QStringLiteral("--scenario"), QStringLiteral("near-limits")}));
    AppCore core(Environment({{QStringLiteral("HOME"), sim.home.path()},
                              {QStringLiteral("QUON_BRIX_ADMIN_PORT"), QString::number(sim.port)}}),
                 nullptr, {});
    PopoverPresenter presenter(&core.model(), {}, WebLinks::from({}), core.environment());
    core.launch();
    QTRY_VERIFY_WITH_TIMEOUT(core.model().hasStatus(), 10000);
    PopoverView view;
    view.apply(presenter.startShowing());
    PopoverWindow popover(&view);
    popover.open();
    QVERIFY(QTest::qWaitForWindowExposed(popover.window()));
    QTest::qWait(200); // let the layouts settle before the picture

    const QStringList texts = visibleTexts(popover.window());
    for (const char *expected : {"quon-brix", "Can I keep working?", "Today", "Claude Code",
                                 "Codex", "Almost at a provider limit", "output tokens",
                                 "Current work", "Local projects", "Cloud sync (optional)", "Quit"})
        QVERIFY2(texts.contains(QString::fromUtf8(expected)), qPrintable(texts.join(u'|')));
    QVERIFY(!texts.contains(QStringLiteral("Starting meter…")));
    QVERIFY(!texts.contains(QStringLiteral("Provider headroom unavailable")));
    QVERIFY(!texts.contains(QStringLiteral(
        "No Claude Code or Codex usage found yet. Refresh after your first session.")));

    // Kept for whoever looks at a CI run.
    const QString shot = QStringLiteral(QUONBRIX_ARTIFACT_DIR "/popover-near-limits.png");
    QVERIFY(popover.window()->grabWindow().save(shot));
}

QTEST_MAIN(PopoverTest)
// Dark from the start under a dark desktop, then whatever the desktop switches to, and the
// platform's own palette back when the desktop states no preference.
void PopoverTest::followsTheDesktopColorScheme() {
    QDBusConnection server =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("portal"));
    QVERIFY(server.isConnected());
    FakeSettingsPortal portal;
    QVERIFY(
        server.registerObject(QStringLiteral("/org/freedesktop/portal/desktop"), &portal,
                              QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals));
    QVERIFY(server.registerService(QStringLiteral("org.freedesktop.portal.Desktop")));
    const QColor platformWindow = QGuiApplication::palette().color(QPalette::Window);
    const auto window = [] { return QGuiApplication::palette().color(QPalette::Window); };

    PortalColorScheme follower(QDBusConnection::sessionBus());
    QTRY_COMPARE(follower.scheme(), 1);
    QCOMPARE(window(), PortalColorScheme::darkPalette().color(QPalette::Window));
    QVERIFY(window().lightness() < 80);

    const auto announce = [&portal](uint scheme) {
        Q_EMIT portal.SettingChanged(QStringLiteral("org.freedesktop.appearance"),
                                     QStringLiteral("color-scheme"), QDBusVariant(scheme));
    };
    announce(2);
    QTRY_COMPARE(follower.scheme(), 2);
    QCOMPARE(window(), PortalColorScheme::lightPalette().color(QPalette::Window));
    announce(0);
    QTRY_COMPARE(follower.scheme(), 0);
    QCOMPARE(window(), platformWindow);
    server.unregisterService(QStringLiteral("org.freedesktop.portal.Desktop"));
}

#include "test_popover.moc"

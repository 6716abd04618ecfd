// The memory baseline for the tray app: the least a Qt tray icon costs, an icon and a menu
// and nothing else.

#include <QApplication>
#include <QMenu>
#include <QPainter>
#include <QPixmap>
#include <QSystemTrayIcon>

int main(int argc, char *argv[]) {
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    QPixmap pixmap(44, 44);
    pixmap.fill(Qt::transparent);
    QPainter(&pixmap).fillRect(4, 4, 36, 36, QColor(28, 32, 46));
    QSystemTrayIcon tray{QIcon(pixmap)};
    QMenu menu;
    menu.addAction(QStringLiteral("Quit"), &app, &QCoreApplication::quit);
    tray.setContextMenu(&menu);
    tray.show();
    return QApplication::exec();
}

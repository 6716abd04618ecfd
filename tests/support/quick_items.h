#pragma once

#include <QQuickItem>
#include <QQuickWindow>
#include <QStringList>

namespace quonbrix::test {

// Every item drawn in the window, walking the visual tree as the scene graph does.
inline QList<QQuickItem *> visualItems(QQuickItem *root) {
    QList<QQuickItem *> items{root};
    for (QQuickItem *child : root->childItems())
        items += visualItems(child);
    return items;
}

// The texts of every visible item, the way a user (or a screen reader) finds them.
inline QStringList visibleTexts(QQuickWindow *window) {
    QStringList texts;
    for (QQuickItem *item : visualItems(window->contentItem())) {
        const QString text = item->property("text").toString();
        if (item->isVisible() && !text.isEmpty())
            texts << text;
    }
    return texts;
}

// Clicks the visible button that says `text`, as a user would; false when there is none.
inline bool click(QQuickWindow *window, const QString &text) {
    for (QQuickItem *item : visualItems(window->contentItem()))
        if (item->isVisible() && item->property("text").toString() == text &&
            item->metaObject()->indexOfSignal("clicked()") >= 0)
            return QMetaObject::invokeMethod(item, "clicked");
    return false;
}

} // namespace quonbrix::test

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

} // namespace quonbrix::test

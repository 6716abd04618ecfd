#pragma once

// List models over the popover's row records: one role per key of the record's `fields()`
// (QML delegates take them as required properties), and updates that touch only the rows
// that changed, so a timer's clock ticking re-binds one text, not the panel.

#include "json/json_codec.h"

#include <QAbstractListModel>
#include <QHash>
#include <QSet>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>
#include <algorithm>
#include <optional>
#include <type_traits>
#include <vector>

namespace quonbrix {

// What QML sees of every row list: a model with a row count.
class RecordListBase : public QAbstractListModel {
    Q_OBJECT
    QML_ANONYMOUS
    Q_PROPERTY(int count READ count NOTIFY countChanged)

public:
    using QAbstractListModel::QAbstractListModel;
    int count() const { return rowCount(); }

Q_SIGNALS:
    void countChanged();
};

namespace record_detail {

template <class T> struct IsOptional : std::false_type {};
template <class T> struct IsOptional<std::optional<T>> : std::true_type {};
template <class T> struct IsRowList : std::false_type {};
template <json::Record T> struct IsRowList<std::vector<T>> : std::true_type {};

template <class T> QVariant toVariant(const T &value);

} // namespace record_detail

// A record as a map for QML, key by key. Lists of rows are left out: they are models of
// their own.
template <json::Record T> QVariantMap toVariantMap(const T &record) {
    QVariantMap map;
    T::fields(record, [&map](const char *key, const auto &field) {
        using F = std::remove_cvref_t<decltype(field)>;
        if constexpr (!record_detail::IsRowList<F>::value)
            map.insert(QLatin1String(key), record_detail::toVariant(field));
    });
    return map;
}

template <class T> QVariant record_detail::toVariant(const T &value) {
    if constexpr (IsOptional<T>::value)
        return value ? toVariant(*value) : QVariant();
    else if constexpr (json::Record<T>)
        return toVariantMap(value);
    else
        return QVariant::fromValue(value);
}

template <json::Record Row> class RecordListModel final : public RecordListBase {
public:
    explicit RecordListModel(QObject *parent = nullptr)
        : RecordListBase(parent) {}

    int rowCount(const QModelIndex &parent = QModelIndex()) const override {
        return parent.isValid() ? 0 : int(m_rows.size());
    }

    QHash<int, QByteArray> roleNames() const override {
        QHash<int, QByteArray> names;
        int role = Qt::UserRole;
        const Row blank{};
        Row::fields(blank, [&](const char *key, const auto &) { names.insert(role++, key); });
        return names;
    }

    QVariant data(const QModelIndex &index, int role) const override {
        if (!index.isValid() || index.row() >= rowCount())
            return {};
        QVariant out;
        int at = Qt::UserRole;
        size_t list = 0;
        const auto row = size_t(index.row());
        Row::fields(m_rows[row], [&](const char *, const auto &field) {
            using F = std::remove_cvref_t<decltype(field)>;
            if constexpr (record_detail::IsRowList<F>::value) {
                if (at == role)
                    out = QVariant::fromValue<QObject *>(m_children[row][list]);
                ++list;
            } else if (at == role) {
                out = record_detail::toVariant(field);
            }
            ++at;
        });
        return out;
    }

    const std::vector<Row> &rows() const { return m_rows; }

    // Makes the list `next`: rows are matched by key; removed, inserted and moved rows are
    // announced as such, and a kept row announces only the roles whose value changed.
    void update(const std::vector<Row> &next) {
        const int before = rowCount();
        if (!distinctKeys(m_rows) || !distinctKeys(next) || m_rows.empty() || next.empty())
            replaceAll(next);
        else
            merge(next);
        if (rowCount() != before)
            Q_EMIT countChanged();
    }

private:
    static bool distinctKeys(const std::vector<Row> &rows) {
        QSet<QString> keys;
        for (const Row &r : rows)
            keys.insert(r.key());
        return keys.size() == qsizetype(rows.size());
    }

    void replaceAll(const std::vector<Row> &next) {
        beginResetModel();
        for (auto &children : m_children)
            release(children);
        m_children.clear();
        m_rows = next;
        for (const Row &row : m_rows)
            m_children.push_back(makeChildren(row));
        endResetModel();
    }

    void merge(const std::vector<Row> &next) {
        QSet<QString> keep;
        for (const Row &r : next)
            keep.insert(r.key());
        for (int i = rowCount() - 1; i >= 0; --i) {
            if (keep.contains(m_rows[size_t(i)].key()))
                continue;
            beginRemoveRows({}, i, i);
            m_rows.erase(m_rows.begin() + i);
            release(m_children[size_t(i)]);
            m_children.erase(m_children.begin() + i);
            endRemoveRows();
        }
        for (size_t i = 0; i < next.size(); ++i) {
            const QString key = next[i].key();
            size_t at = i;
            while (at < m_rows.size() && m_rows[at].key() != key)
                ++at;
            if (at == m_rows.size()) {
                beginInsertRows({}, int(i), int(i));
                m_rows.insert(m_rows.begin() + qsizetype(i), next[i]);
                m_children.insert(m_children.begin() + qsizetype(i), makeChildren(next[i]));
                endInsertRows();
                continue;
            }
            if (at != i) {
                beginMoveRows({}, int(at), int(at), {}, int(i));
                std::rotate(m_rows.begin() + qsizetype(i), m_rows.begin() + qsizetype(at),
                            m_rows.begin() + qsizetype(at) + 1);
                std::rotate(m_children.begin() + qsizetype(i), m_children.begin() + qsizetype(at),
                            m_children.begin() + qsizetype(at) + 1);
                endMoveRows();
            }
            updateRow(i, next[i]);
        }
    }

    // A removed row's lists go once QML has let go of them.
    static void release(const std::vector<QObject *> &children) {
        for (QObject *child : children)
            child->deleteLater();
    }

    // New children for the row's lists, one model per list, in field order.
    std::vector<QObject *> makeChildren(const Row &row) {
        std::vector<QObject *> children;
        Row::fields(row, [&](const char *, const auto &field) {
            using F = std::remove_cvref_t<decltype(field)>;
            if constexpr (record_detail::IsRowList<F>::value) {
                auto *child = new RecordListModel<typename F::value_type>(this);
                child->update(field);
                children.push_back(child);
            }
        });
        return children;
    }

    void updateRow(size_t i, const Row &next) {
        if (m_rows[i] == next)
            return;
        std::vector<const void *> old;
        Row::fields(m_rows[i], [&old](const char *, const auto &field) { old.push_back(&field); });
        QList<int> roles;
        int role = Qt::UserRole;
        size_t list = 0;
        Row::fields(next, [&](const char *, const auto &field) {
            using F = std::remove_cvref_t<decltype(field)>;
            const F &was = *static_cast<const F *>(old[size_t(role - Qt::UserRole)]);
            if constexpr (record_detail::IsRowList<F>::value) {
                // The row's own list updates in place; its model object stays the same.
                static_cast<RecordListModel<typename F::value_type> *>(m_children[i][list++])
                    ->update(field);
            } else if (!(was == field)) {
                roles << role;
            }
            ++role;
        });
        m_rows[i] = next;
        if (!roles.isEmpty())
            Q_EMIT dataChanged(index(int(i)), index(int(i)), roles);
    }

    std::vector<Row> m_rows;
    std::vector<std::vector<QObject *>> m_children;
};

} // namespace quonbrix

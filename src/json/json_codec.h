#pragma once

// Strict JSON decoding and mirrored encoding for records that list their keys in `fields()`:
// the daemon's records and the messages between the tray and its popover.
//
// Decoding is all-or-nothing: a required key that is missing, null or of the wrong type, or an
// optional one that is present but malformed, fails the whole record. JSON integers are accepted
// where a double is expected; fields that are integers must hold an integral value that fits in
// 64 bits. Unknown keys are ignored. On failure an optional error text names the first offending
// path (for example "projects[3].lastSeen: missing") for logs; callers only see "absent".

#include "json/keyed_list.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QLatin1String>
#include <type_traits>

namespace quonbrix::json {

template <class T>
concept Record = requires(T &t) {
    T::fields(t, [](const char *, auto &) {});
};

namespace detail {

template <class T> struct IsOptional : std::false_type {};
template <class T> struct IsOptional<std::optional<T>> : std::true_type {};
template <class T> struct IsVector : std::false_type {};
template <class T> struct IsVector<std::vector<T>> : std::true_type {};
template <class T> struct IsStringKeyedMap : std::false_type {};
template <class T> struct IsStringKeyedMap<KeyedList<T>> : std::true_type {};

inline bool fail(QString *err, const char *what) {
    if (err)
        *err = QLatin1String(": ") + QLatin1String(what);
    return false;
}

inline void prefix(QString *err, const QString &segment) {
    if (err)
        err->prepend(segment);
}

bool decodeInt64(const QJsonValue &v, qint64 &out);

template <Record T> bool decodeObject(const QJsonObject &o, T &out, QString *err);

template <class T> bool decodeValue(const QJsonValue &v, T &out, QString *err) {
    if constexpr (std::is_same_v<T, bool>) {
        if (!v.isBool())
            return fail(err, "expected a boolean");
        out = v.toBool();
        return true;
    } else if constexpr (std::is_same_v<T, QString>) {
        if (!v.isString())
            return fail(err, "expected a string");
        out = v.toString();
        return true;
    } else if constexpr (std::is_same_v<T, qint64>) {
        if (!v.isDouble())
            return fail(err, "expected an integer");
        if (!decodeInt64(v, out))
            return fail(err, "expected an integer that fits in 64 bits");
        return true;
    } else if constexpr (std::is_same_v<T, double>) {
        if (!v.isDouble())
            return fail(err, "expected a number");
        out = v.toDouble();
        return true;
    } else if constexpr (std::is_same_v<T, QStringList>) {
        if (!v.isArray())
            return fail(err, "expected an array of strings");
        const QJsonArray a = v.toArray();
        out.clear();
        out.reserve(a.size());
        for (qsizetype i = 0; i < a.size(); ++i) {
            const QJsonValue item = a.at(i);
            if (!item.isString()) {
                fail(err, "expected a string");
                prefix(err, QLatin1Char('[') + QString::number(i) + QLatin1Char(']'));
                return false;
            }
            out.append(item.toString());
        }
        return true;
    } else if constexpr (IsVector<T>::value) {
        if (!v.isArray())
            return fail(err, "expected an array");
        const QJsonArray a = v.toArray();
        out.clear();
        out.reserve(size_t(a.size()));
        for (qsizetype i = 0; i < a.size(); ++i) {
            typename T::value_type item{};
            if (!decodeValue(a.at(i), item, err)) {
                prefix(err, QLatin1Char('[') + QString::number(i) + QLatin1Char(']'));
                return false;
            }
            out.push_back(std::move(item));
        }
        return true;
    } else if constexpr (IsStringKeyedMap<T>::value) {
        if (!v.isObject())
            return fail(err, "expected an object");
        const QJsonObject o = v.toObject();
        out.clear();
        out.reserve(o.size());
        for (auto it = o.constBegin(); it != o.constEnd(); ++it) {
            typename T::mapped_type item{};
            if (!decodeValue(it.value(), item, err)) {
                prefix(err, QLatin1String("[\"") + it.key() + QLatin1String("\"]"));
                return false;
            }
            out.append(it.key(), std::move(item));
        }
        return true;
    } else {
        static_assert(Record<T>, "no JSON decoding for this type");
        if (!v.isObject())
            return fail(err, "expected an object");
        return decodeObject(v.toObject(), out, err);
    }
}

template <Record T> bool decodeObject(const QJsonObject &o, T &out, QString *err) {
    bool ok = true;
    T::fields(out, [&](const char *key, auto &field) {
        if (!ok)
            return;
        using F = std::remove_reference_t<decltype(field)>;
        const QJsonValue v = o.value(QLatin1String(key));
        const bool missing = v.isUndefined() || v.isNull();
        if constexpr (IsOptional<F>::value) {
            if (missing) {
                field.reset();
                return;
            }
            typename F::value_type inner{};
            ok = decodeValue(v, inner, err);
            if (ok)
                field = std::move(inner);
        } else {
            ok = missing ? fail(err, "missing") : decodeValue(v, field, err);
        }
        if (!ok)
            prefix(err, QLatin1Char('.') + QLatin1String(key));
    });
    return ok;
}

template <class T> QJsonValue encodeValue(const T &v);

template <Record T> QJsonObject encodeObject(const T &record) {
    QJsonObject o;
    T::fields(record, [&](const char *key, const auto &field) {
        using F = std::remove_cvref_t<decltype(field)>;
        if constexpr (IsOptional<F>::value) {
            if (field)
                o.insert(QLatin1String(key), encodeValue(*field));
        } else {
            o.insert(QLatin1String(key), encodeValue(field));
        }
    });
    return o;
}

template <class T> QJsonValue encodeValue(const T &v) {
    if constexpr (std::is_same_v<T, bool> || std::is_same_v<T, QString> ||
                  std::is_same_v<T, qint64> || std::is_same_v<T, double>) {
        return QJsonValue(v);
    } else if constexpr (std::is_same_v<T, QStringList>) {
        return QJsonArray::fromStringList(v);
    } else if constexpr (IsVector<T>::value) {
        QJsonArray a;
        for (const auto &item : v)
            a.append(encodeValue(item));
        return a;
    } else if constexpr (IsStringKeyedMap<T>::value) {
        QJsonObject o;
        for (const auto &[key, value] : v)
            o.insert(key, encodeValue(value));
        return o;
    } else {
        return encodeObject(v);
    }
}

} // namespace detail

template <Record T> std::optional<T> decode(const QJsonObject &object, QString *error = nullptr) {
    T out{};
    if (!detail::decodeObject(object, out, error)) {
        if (error && error->startsWith(QLatin1Char('.')))
            error->remove(0, 1);
        return std::nullopt;
    }
    return out;
}

// Decodes a reply body. Anything but a JSON object at the top fails.
template <Record T> std::optional<T> decode(const QByteArray &body, QString *error = nullptr) {
    QJsonParseError parseError{};
    const QJsonDocument doc = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        if (error)
            *error = QLatin1String("not JSON: ") + parseError.errorString();
        return std::nullopt;
    }
    if (!doc.isObject()) {
        if (error)
            *error = QLatin1String("not a JSON object");
        return std::nullopt;
    }
    return decode<T>(doc.object(), error);
}

template <Record T> QJsonObject encode(const T &record) {
    return detail::encodeObject(record);
}

template <Record T> QByteArray encodeBytes(const T &record) {
    return QJsonDocument(detail::encodeObject(record)).toJson(QJsonDocument::Compact);
}

} // namespace quonbrix::json

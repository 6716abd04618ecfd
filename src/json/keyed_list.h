#pragma once

#include <QString>
#include <initializer_list>
#include <utility>
#include <vector>

namespace quonbrix {

// The members of a JSON object whose keys are data (project keys, consent per project), kept
// as one flat list in the object's order: a status can carry thousands of them, and a node per
// entry made decoding noticeably slower than parsing the JSON at all.
template <class T> class KeyedList {
public:
    using mapped_type = T;
    using Entry = std::pair<QString, T>;

    KeyedList() = default;
    KeyedList(std::initializer_list<Entry> entries)
        : m_entries(entries) {}

    qsizetype size() const { return qsizetype(m_entries.size()); }
    bool isEmpty() const { return m_entries.empty(); }
    void clear() { m_entries.clear(); }
    void reserve(qsizetype n) { m_entries.reserve(size_t(n)); }
    // Replaces the value of an existing key, else appends.
    void insert(const QString &key, T value) {
        for (auto &e : m_entries) {
            if (e.first == key) {
                e.second = std::move(value);
                return;
            }
        }
        m_entries.emplace_back(key, std::move(value));
    }
    // Appends without looking for the key: for keys known to be distinct, such as a JSON
    // object's.
    void append(QString key, T value) { m_entries.emplace_back(std::move(key), std::move(value)); }
    T value(const QString &key, const T &fallback = T()) const {
        for (const auto &e : m_entries)
            if (e.first == key)
                return e.second;
        return fallback;
    }
    auto begin() const { return m_entries.cbegin(); }
    auto end() const { return m_entries.cend(); }
    bool operator==(const KeyedList &) const = default;

private:
    std::vector<Entry> m_entries;
};

} // namespace quonbrix

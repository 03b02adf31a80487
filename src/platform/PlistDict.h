#pragma once

#include "PlistValue.h"

#include <QHash>

#include <initializer_list>
#include <memory>
#include <vector>

// A dictionary that keeps its keys in insertion order; replacing a value keeps its place.
class PlistDict
{
public:
    struct Entry
    {
        QString key;
        PlistValue value;
    };

    PlistDict() = default;
    PlistDict(std::initializer_list<Entry> entries);

    int size() const { return static_cast<int>(m_entries.size()); }
    bool isEmpty() const { return m_entries.empty(); }
    bool contains(const QString &key) const { return indexOf(key) >= 0; }
    // The value under key, or "no value".
    PlistValue value(const QString &key) const;
    const PlistValue *find(const QString &key) const;
    PlistValue *find(const QString &key);
    void insert(const QString &key, const PlistValue &value);
    void insert(QString &&key, PlistValue &&value);
    // Room for this many entries without reallocating.
    void reserve(int size) { m_entries.reserve(static_cast<size_t>(size)); }
    bool remove(const QString &key);
    void clear();
    QStringList keys() const;
    const Entry &at(int index) const { return m_entries[static_cast<size_t>(index)]; }

    std::vector<Entry>::const_iterator begin() const { return m_entries.begin(); }
    std::vector<Entry>::const_iterator end() const { return m_entries.end(); }

    // Equal when both hold the same keys with equal values, in any order.
    bool operator==(const PlistDict &other) const;
    bool operator!=(const PlistDict &other) const { return !(*this == other); }

private:
    int indexOf(const QString &key) const;
    void rebuildIndex() const;

    std::vector<Entry> m_entries;
    // Built lazily for large dictionaries only; small ones are searched in order.
    mutable std::unique_ptr<QHash<QString, int>> m_index;

public:
    PlistDict(const PlistDict &other);
    PlistDict &operator=(const PlistDict &other);
    PlistDict(PlistDict &&other) noexcept = default;
    PlistDict &operator=(PlistDict &&other) noexcept = default;
    ~PlistDict();
};

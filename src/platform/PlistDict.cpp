#include "PlistDict.h"

namespace {
// Below this size a linear search beats building and keeping a hash.
constexpr int kIndexThreshold = 24;
} // namespace

PlistDict::PlistDict(std::initializer_list<Entry> entries)
{
    m_entries.reserve(entries.size());
    for (const Entry &e : entries) {
        insert(e.key, e.value);
    }
}

PlistDict::PlistDict(const PlistDict &other) : m_entries(other.m_entries) {}

PlistDict &PlistDict::operator=(const PlistDict &other)
{
    if (this != &other) {
        m_entries = other.m_entries;
        m_index.reset();
    }
    return *this;
}

PlistDict::~PlistDict() = default;

int PlistDict::indexOf(const QString &key) const
{
    if (m_entries.size() < static_cast<size_t>(kIndexThreshold)) {
        for (size_t i = 0; i < m_entries.size(); ++i) {
            if (m_entries[i].key == key) {
                return static_cast<int>(i);
            }
        }
        return -1;
    }
    if (!m_index) {
        rebuildIndex();
    }
    return m_index->value(key, -1);
}

void PlistDict::rebuildIndex() const
{
    m_index = std::make_unique<QHash<QString, int>>();
    m_index->reserve(static_cast<qsizetype>(m_entries.size()));
    for (size_t i = 0; i < m_entries.size(); ++i) {
        m_index->insert(m_entries[i].key, static_cast<int>(i));
    }
}

PlistValue PlistDict::value(const QString &key) const
{
    const int i = indexOf(key);
    return i >= 0 ? m_entries[static_cast<size_t>(i)].value : PlistValue();
}

const PlistValue *PlistDict::find(const QString &key) const
{
    const int i = indexOf(key);
    return i >= 0 ? &m_entries[static_cast<size_t>(i)].value : nullptr;
}

PlistValue *PlistDict::find(const QString &key)
{
    const int i = indexOf(key);
    return i >= 0 ? &m_entries[static_cast<size_t>(i)].value : nullptr;
}

void PlistDict::insert(const QString &key, const PlistValue &value)
{
    const int i = indexOf(key);
    if (i >= 0) {
        m_entries[static_cast<size_t>(i)].value = value;
        return;
    }
    m_entries.push_back(Entry{key, value});
    if (m_index) {
        m_index->insert(key, static_cast<int>(m_entries.size() - 1));
    }
}

void PlistDict::insert(QString &&key, PlistValue &&value)
{
    const int i = indexOf(key);
    if (i >= 0) {
        m_entries[static_cast<size_t>(i)].value = std::move(value);
        return;
    }
    m_entries.push_back(Entry{std::move(key), std::move(value)});
    if (m_index) {
        m_index->insert(m_entries.back().key, static_cast<int>(m_entries.size() - 1));
    }
}

bool PlistDict::remove(const QString &key)
{
    const int i = indexOf(key);
    if (i < 0) {
        return false;
    }
    m_entries.erase(m_entries.begin() + i);
    m_index.reset();
    return true;
}

void PlistDict::clear()
{
    m_entries.clear();
    m_index.reset();
}

QStringList PlistDict::keys() const
{
    QStringList out;
    out.reserve(size());
    for (const Entry &e : m_entries) {
        out.append(e.key);
    }
    return out;
}

bool PlistDict::operator==(const PlistDict &other) const
{
    if (size() != other.size()) {
        return false;
    }
    for (const Entry &e : m_entries) {
        const PlistValue *v = other.find(e.key);
        if (!v || *v != e.value) {
            return false;
        }
    }
    return true;
}

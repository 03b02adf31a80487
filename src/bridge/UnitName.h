#pragma once

#include <QString>

#include <optional>

// Unit names made from job labels.
class UnitName
{
public:
    // The longest unit name systemd accepts, suffix included.
    static constexpr int kMaxLength = 255;

    // The label itself when systemd takes it as a unit name, otherwise the label escaped
    // as systemd-escape does ("/" to "-", a leading "." and every byte outside
    // [A-Za-z0-9:_.] to \xNN).
    static QString escape(const QString &label);
    // LABEL.suffix, or no value when the name would be too long for systemd.
    static std::optional<QString> forLabel(const QString &label, const QString &suffix);
};

#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

class AppController;

// The entry point: with no argument, or a first argument that is no known switch, the
// windowed application; with "-tasks", "-add", "-edit", "-remove", "-enable" or "-disable"
// one headless command, whose failures reach the client as notifications and as the exit
// status.
class CommandLine
{
public:
    using WindowedApplication = std::function<int(int argc, char **argv)>;

    static int main(int argc, char **argv, const WindowedApplication &windowed);
    static bool isSwitch(const QString &argument);
    // One headless command; arguments[1] is a known switch.
    static int run(const QStringList &arguments);

    // The optional tail of "-add" and "-edit", read from positions 5, 6 and 7.
    struct Tail
    {
        std::optional<QString> intervalValue;
        bool enabled = true;
    };
    static Tail parseTail(const QStringList &arguments);

private:
    static int tasks(const QStringList &arguments);
    static int add(const QStringList &arguments);
    static int edit(const QStringList &arguments);
    static int remove(const QStringList &arguments);
    static int enableOrDisable(const QStringList &arguments, bool enable);
    static bool saveAll(AppController &controller, bool enable);
};

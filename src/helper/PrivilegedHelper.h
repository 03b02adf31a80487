#pragma once

#include <map>
#include <string>
#include <vector>

#include <sys/types.h>

// The privileged side of the helper protocol: reads requests from its input, runs the
// allowed tools (by absolute path, no shell, no PATH search, /dev/null for their input and
// output) and answers on its output. Everything it refuses is logged.
class PrivilegedHelper
{
public:
    PrivilegedHelper(int input, int output, std::vector<std::string> allowedTools);

    // Says "ready", then serves requests until the input ends; returns the exit status.
    int serve();

    // The standard tools, the launchctl bridge beside the helper, and VT_LAUNCHCTL when it
    // is set (pkexec clears the environment, so a real elevation never sees it).
    static std::vector<std::string> defaultAllowedTools();
    // Warnings and errors go to standard error in the console's form; everything goes to
    // the journal.
    static void log(int priority, const std::string &message);

private:
    std::string handle(const std::string &line);
    std::string refuse(const std::string &reason, const std::string &detail);
    bool isAllowed(const std::string &tool) const;
    pid_t start(const std::vector<std::string> &request, int *error) const;
    void reapSpawned();
    bool writeAll(const std::string &bytes) const;

    int m_input;
    int m_output;
    std::vector<std::string> m_allowed;
    // Started and not yet reaped, with the tool each runs.
    std::map<pid_t, std::string> m_spawned;
    std::string m_buffer;
    bool m_discarding = false;
};

#pragma once

#include "HelperPolicy.h"

#include <map>
#include <string>
#include <vector>

#include <sys/types.h>

// The privileged side of the helper protocol: reads requests from its input, runs what its
// policy accepts (by absolute path, no shell, no PATH search, a clean environment, /dev/null
// for their input and output) and answers on its output. Everything it refuses is logged.
class PrivilegedHelper
{
public:
    PrivilegedHelper(int input, int output, HelperPolicy policy);

    // Says "ready", then serves requests until the input ends or the helper is told to
    // stop; whatever it started and is still running is then ended. Returns the exit status.
    int serve();
    // Warnings and errors go to standard error in the console's form; everything goes to
    // the journal.
    static void log(int priority, const std::string &message);

private:
    int serveRequests();
    std::string handle(const std::string &line);
    std::string refuse(const std::string &reason, const std::string &detail);
    pid_t start(const HelperPolicy::Plan &plan, int *error) const;
    void reapSpawned();
    void endSpawned();
    bool writeAll(const std::string &bytes) const;

    int m_input;
    int m_output;
    HelperPolicy m_policy;
    // Started and not yet reaped, with the tool each runs.
    std::map<pid_t, std::string> m_spawned;
    std::string m_buffer;
    bool m_discarding = false;
};

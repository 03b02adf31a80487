#pragma once

#include <spawn.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

// The line protocol between the application and kairo-helper, on the helper's standard input
// and output. A line is a list of fields separated by single spaces and ends in a newline;
// every field is percent-encoded, so a field may hold spaces, newlines or any other byte.
//
//   helper:  ready                       once, when it is ready for requests
//   client:  run TOOL ARG...             run and wait;   helper: status N
//   client:  spawn TOOL ARG...           start only;     helper: started
//   helper:  refused REASON              for anything it does not do
//
// The helper ends when its input ends.
class HelperProtocol
{
public:
    static constexpr const char *kReady = "ready";
    static constexpr const char *kRun = "run";
    static constexpr const char *kSpawn = "spawn";
    static constexpr const char *kStatus = "status";
    static constexpr const char *kStarted = "started";
    static constexpr const char *kRefused = "refused";
    // Passed by a stand-in elevation program in tests: the helper may then run as the
    // invoking user. It never makes the helper act as root.
    static constexpr const char *kAllowUnprivileged = "--allow-unprivileged";
    // Longest line either side accepts, newline included.
    static constexpr std::size_t kMaxLine = 4 * 1024 * 1024;

    static std::string encodeField(const std::string &bytes);
    // No value when the field holds a byte that needs encoding or a bad escape.
    static std::optional<std::string> decodeField(const std::string &field);

    // The encoded fields joined into one line, newline included.
    static std::string line(const std::vector<std::string> &fields);
    // The decoded fields of a line given without its newline; no value when any is malformed.
    static std::optional<std::vector<std::string>> fields(const std::string &line);

    // Both sides start programs with posix_spawn: the child gets an empty signal mask and
    // every signal at its default action, whatever the parent ignores or catches.
    static void initSpawnAttributes(posix_spawnattr_t *attributes);
};

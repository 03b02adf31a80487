#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

// What the helper agrees to run: only the requests the application makes for its root job
// files. Those are staged in the requester's private folder, moved into the system's
// LaunchDaemons folder, owned by root, trashed into the requester's trash, removed, and
// loaded or unloaded with the launchctl bridge; that folder may be created. Every path is
// checked here, as root, on the file system itself: no "..", no link followed, folders
// opened one component at a time and only where no other user can change them.
class HelperPolicy
{
public:
    // A request as it will run, with the folders it was checked against held open.
    struct Plan
    {
        std::string tool;
        std::vector<std::string> arguments;
        // The bridge may run on while the helper serves; file tools always end first.
        bool mayRunOn = false;
        std::vector<int> folders;
        // After the tool: a file that must be a plain file (else it is removed), and a
        // file to hand to the requester.
        int checkedFolder = -1;
        std::string checkedName;
        int ownedFolder = -1;
        std::string ownedName;
    };

    // Reads the local root (VT_LOCAL_ROOT, else "/") and the requester; no value, after
    // logging why, when the local root is a folder that someone other than root could
    // change.
    static std::optional<HelperPolicy> create(int protocolSocket);

    // No value, with the reason, for anything that is not one of the system's requests.
    std::optional<Plan> plan(const std::vector<std::string> &request, std::string *reason) const;
    // Checks what the tool left behind and closes the plan's folders; the status to report.
    int finish(Plan &plan, int status) const;
    void discard(Plan &plan) const;

    // The environment of every tool: a fixed PATH, the locale and the checked settings.
    const std::vector<std::string> &environment() const { return m_environment; }
    const std::string &bridge() const { return m_bridge; }
    const std::string &daemonsFolder() const { return m_daemons; }

private:
    HelperPolicy() = default;

    std::optional<Plan> jobFileTool(const std::string &tool, const std::vector<std::string> &args,
                                    std::string *reason) const;
    std::optional<Plan> move(const std::vector<std::string> &args, std::string *reason) const;
    // The job file's name when the path is the daemons folder plus such a name.
    std::optional<std::string> daemonName(const std::string &path) const;
    int openDaemons(std::string *reason) const;

    std::string m_bridge;
    std::string m_daemons;
    uid_t m_requester = 0;
    gid_t m_requesterGroup = 0;
    std::vector<std::string> m_environment;
};

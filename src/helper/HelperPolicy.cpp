#include "HelperPolicy.h"

#include "PrivilegedHelper.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syslog.h>
#include <unistd.h>

namespace {

const char kBridgeName[] = "kairo-launchctl";
const char kJobPrefix[] = "com.vantreel.RootScheduledTask";
const char kJobSuffix[] = ".plist";
const char kRootOwner[] = "root:root";

bool endsWith(const std::string &text, const std::string &tail)
{
    return text.size() >= tail.size() &&
           text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// The names the store lists as root jobs (case ignored, as its predicate does).
bool isJobName(const std::string &name)
{
    const std::size_t prefix = sizeof(kJobPrefix) - 1;
    const std::size_t suffix = sizeof(kJobSuffix) - 1;
    return name.size() >= prefix + suffix && name.find('/') == std::string::npos &&
           ::strncasecmp(name.c_str(), kJobPrefix, prefix) == 0 &&
           ::strcasecmp(name.c_str() + name.size() - suffix, kJobSuffix) == 0;
}

// The name a job file gets in the trash: its own, or with "_" and the fourteen digits of
// the time before the extension when that name is taken.
bool isTrashName(const std::string &name, const std::string &job)
{
    if (name == job) {
        return true;
    }
    const std::size_t suffix = sizeof(kJobSuffix) - 1;
    const std::string stem = job.substr(0, job.size() - suffix);
    const std::string tail = name.substr(std::min(name.size(), stem.size()));
    if (name.compare(0, stem.size(), stem) != 0 || tail.size() != 1 + 14 + suffix ||
        tail[0] != '_' || tail.compare(15, suffix, job, job.size() - suffix, suffix) != 0) {
        return false;
    }
    for (std::size_t i = 1; i <= 14; ++i) {
        if (tail[i] < '0' || tail[i] > '9') {
            return false;
        }
    }
    return true;
}

// An absolute path written plainly: no empty, "." or ".." component, no trailing slash.
bool isPlainPath(const std::string &path)
{
    if (path.size() < 2 || path[0] != '/' || path.back() == '/' ||
        path.find('\0') != std::string::npos) {
        return false;
    }
    std::size_t start = 1;
    while (start <= path.size()) {
        std::size_t end = path.find('/', start);
        if (end == std::string::npos) {
            end = path.size();
        }
        const std::string part = path.substr(start, end - start);
        if (part.empty() || part == "." || part == "..") {
            return false;
        }
        start = end + 1;
    }
    return true;
}

std::pair<std::string, std::string> split(const std::string &path)
{
    const std::size_t slash = path.rfind('/');
    return {slash == 0 ? std::string("/") : path.substr(0, slash), path.substr(slash + 1)};
}

enum class Last
{
    Trusted,   // as every folder above it
    Requester, // owned by the requester
    Private,   // owned by the requester, no access for anyone else
};

// Opens a folder from "/" one component at a time without following a link. Every folder
// on the way belongs to root (or to the helper itself when it runs unprivileged, or to one
// of the extra owners), and none can be written by others unless it is root's and sticky;
// the last one must also satisfy `last`. -1 when any of that fails.
int openFolder(const std::string &path, const std::vector<uid_t> &owners, Last last,
               uid_t requester, bool *missing = nullptr)
{
    if (missing) {
        *missing = false;
    }
    if (path != "/" && !isPlainPath(path)) {
        return -1;
    }
    std::vector<std::string> parts;
    for (std::size_t start = 1; start < path.size();) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        parts.push_back(path.substr(start, end - start));
        start = end + 1;
    }
    int fd = ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (std::size_t i = 0;; ++i) {
        struct stat info
        {};
        if (fd < 0 || ::fstat(fd, &info) != 0) {
            break;
        }
        bool owned = info.st_uid == 0 || info.st_uid == ::geteuid();
        for (const uid_t owner : owners) {
            owned = owned || info.st_uid == owner;
        }
        const bool shared = (info.st_mode & (S_IWGRP | S_IWOTH)) != 0;
        if (!owned || (shared && !(info.st_uid == 0 && (info.st_mode & S_ISVTX) != 0))) {
            break;
        }
        if (i == parts.size()) {
            if (last != Last::Trusted && info.st_uid != requester) {
                break;
            }
            if (last == Last::Private && (info.st_mode & 077) != 0) {
                break;
            }
            return fd;
        }
        const int next =
            ::openat(fd, parts[i].c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (next < 0 && errno == ENOENT && missing) {
            *missing = true;
        }
        ::close(fd);
        fd = next;
    }
    if (fd >= 0) {
        ::close(fd);
    }
    return -1;
}

// A plain file with one name, optionally owned by the given user.
bool isPlainFile(int folder, const std::string &name, std::optional<uid_t> owner = std::nullopt)
{
    struct stat info
    {};
    return ::fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISREG(info.st_mode) && info.st_nlink == 1 && (!owner || info.st_uid == *owner);
}

// Removes an entry of a folder, a whole tree when it is a folder, never following a link.
void removeEntry(int folder, const char *name, int depth = 0)
{
    if (::unlinkat(folder, name, 0) == 0 || errno != EISDIR || depth > 64) {
        return;
    }
    const int fd = ::openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        return;
    }
    if (DIR *dir = ::fdopendir(fd)) {
        while (const dirent *entry = ::readdir(dir)) {
            if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
                removeEntry(::dirfd(dir), entry->d_name, depth + 1);
            }
        }
        ::closedir(dir);
    } else {
        ::close(fd);
    }
    ::unlinkat(folder, name, AT_REMOVEDIR);
}

bool isAbsent(int folder, const std::string &name)
{
    struct stat info
    {};
    return ::fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT;
}

// The path through which a tool reaches an entry of a folder the helper holds open: the
// tool cannot be sent elsewhere by a folder renamed or replaced by a link meanwhile.
std::string heldPath(int folder, const std::string &name)
{
    return "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(folder) + "/" + name;
}

std::string helperFolder()
{
    char self[PATH_MAX];
    const ssize_t n = ::readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (n <= 0) {
        return std::string();
    }
    std::string folder(self, static_cast<std::size_t>(n));
    folder.erase(folder.rfind('/') + 1);
    return folder;
}

// A program the helper may name to the bridge: a plain file in trusted folders that no one
// else may change.
bool isTrustedProgram(const std::string &path)
{
    if (!isPlainPath(path)) {
        return false;
    }
    const auto [folder, name] = split(path);
    const int fd = openFolder(folder, {}, Last::Trusted, 0);
    if (fd < 0) {
        return false;
    }
    struct stat info
    {};
    const bool ok = ::fstatat(fd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 &&
                    S_ISREG(info.st_mode) && (info.st_uid == 0 || info.st_uid == ::geteuid()) &&
                    (info.st_mode & (S_IWGRP | S_IWOTH)) == 0;
    ::close(fd);
    return ok;
}

} // namespace

std::optional<HelperPolicy> HelperPolicy::create(int protocolSocket)
{
    HelperPolicy policy;
    policy.m_bridge = helperFolder() + kBridgeName;

    std::string root;
    if (const char *custom = secure_getenv("VT_LOCAL_ROOT"); custom && custom[0] != '\0') {
        root = custom;
        while (root.size() > 1 && root.back() == '/') {
            root.pop_back();
        }
        if (root == "/") {
            root.clear();
        }
    }
    if (!root.empty()) {
        const int fd = openFolder(root, {}, Last::Trusted, 0);
        if (fd < 0) {
            PrivilegedHelper::log(LOG_ERR, "The local root " + root +
                                               " is not a folder that only root can change");
            return std::nullopt;
        }
        ::close(fd);
    }
    policy.m_daemons = root + "/Library/LaunchDaemons";

    // The requester is whoever made the socket the requests come through; a helper started
    // some other way serves root's own folders only.
    ucred peer{};
    socklen_t size = sizeof(peer);
    policy.m_requester = ::getsockopt(protocolSocket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
                                 size == sizeof(peer)
                             ? peer.uid
                             : ::getuid();
    const passwd *entry = ::getpwuid(policy.m_requester);
    policy.m_requesterGroup = entry ? entry->pw_gid : policy.m_requester;

    policy.m_environment = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LANG=C.UTF-8"};
    if (!root.empty()) {
        policy.m_environment.push_back("VT_LOCAL_ROOT=" + root);
    }
    if (const char *systemctl = secure_getenv("VT_SYSTEMCTL");
        systemctl && isTrustedProgram(systemctl)) {
        policy.m_environment.push_back(std::string("VT_SYSTEMCTL=") + systemctl);
    }
    return policy;
}

std::optional<std::string> HelperPolicy::daemonName(const std::string &path) const
{
    if (!isPlainPath(path)) {
        return std::nullopt;
    }
    const auto [folder, name] = split(path);
    if (folder != m_daemons || !isJobName(name)) {
        return std::nullopt;
    }
    return name;
}

int HelperPolicy::openDaemons(std::string *reason) const
{
    const int fd = openFolder(m_daemons, {}, Last::Trusted, 0);
    if (fd < 0) {
        *reason = "the LaunchDaemons folder is missing or not root's alone";
    }
    return fd;
}

std::optional<HelperPolicy::Plan> HelperPolicy::plan(const std::vector<std::string> &request,
                                                     std::string *reason) const
{
    const std::string &tool = request.at(1);
    const std::vector<std::string> args(request.begin() + 2, request.end());
    if (tool == m_bridge) {
        if (args.size() != 2 || (args[0] != "load" && args[0] != "unload") ||
            !daemonName(args[1])) {
            *reason = "not a request of the system";
            return std::nullopt;
        }
        const int daemons = openDaemons(reason);
        if (daemons < 0) {
            return std::nullopt;
        }
        Plan plan;
        plan.tool = tool;
        plan.arguments = args;
        plan.mayRunOn = true;
        plan.folders = {daemons};
        return plan;
    }
    if (tool == "/bin/mkdir") {
        if (args != std::vector<std::string>{"-p", m_daemons}) {
            *reason = "not a request of the system";
            return std::nullopt;
        }
        // What exists of it must already be root's alone.
        bool missing = false;
        std::string existing = m_daemons;
        int fd = openFolder(existing, {}, Last::Trusted, 0, &missing);
        while (fd < 0 && missing && existing.size() > 1) {
            existing = split(existing).first;
            fd = openFolder(existing, {}, Last::Trusted, 0, &missing);
        }
        if (fd < 0) {
            *reason = "the LaunchDaemons folder would not be root's alone";
            return std::nullopt;
        }
        Plan plan;
        plan.tool = tool;
        plan.arguments = {"-p", "--", m_daemons};
        plan.folders = {fd};
        return plan;
    }
    if (tool == "/bin/mv") {
        return move(args, reason);
    }
    if (tool == "/bin/rm" || tool == "/bin/chown" || tool == "/bin/chmod") {
        return jobFileTool(tool, args, reason);
    }
    *reason = "not an allowed program";
    return std::nullopt;
}

std::optional<HelperPolicy::Plan> HelperPolicy::jobFileTool(const std::string &tool,
                                                            const std::vector<std::string> &args,
                                                            std::string *reason) const
{
    const char *option = tool == "/bin/rm" ? "-Rdf" : tool == "/bin/chown" ? kRootOwner : "644";
    const std::optional<std::string> name =
        args.size() == 2 && args[0] == option ? daemonName(args[1]) : std::nullopt;
    if (!name) {
        *reason = "not a request of the system";
        return std::nullopt;
    }
    const int daemons = openDaemons(reason);
    if (daemons < 0) {
        return std::nullopt;
    }
    // Removing takes whatever stands there; owning and the mode only a plain file.
    if (tool != "/bin/rm" && !isPlainFile(daemons, *name)) {
        ::close(daemons);
        *reason = "not a plain job file";
        return std::nullopt;
    }
    Plan plan;
    plan.tool = tool;
    plan.arguments = {option, "--", heldPath(daemons, *name)};
    plan.folders = {daemons};
    return plan;
}

std::optional<HelperPolicy::Plan> HelperPolicy::move(const std::vector<std::string> &args,
                                                     std::string *reason) const
{
    *reason = "not a request of the system";
    if (args.size() != 3 || args[0] != "-f" || !isPlainPath(args[1]) || !isPlainPath(args[2])) {
        return std::nullopt;
    }
    const auto [fromFolder, fromName] = split(args[1]);
    const auto [toFolder, toName] = split(args[2]);
    const std::optional<std::string> staged = daemonName(args[2]);
    const std::optional<std::string> trashed = daemonName(args[1]);
    Plan plan;
    plan.tool = "/bin/mv";
    if (staged && fromName == *staged) {
        // From the requester's private stage folder into the system folder.
        const int stage = openFolder(fromFolder, {m_requester}, Last::Private, m_requester);
        if (stage < 0 || !isPlainFile(stage, fromName, m_requester)) {
            if (stage >= 0) {
                ::close(stage);
            }
            *reason = "not a job file staged in the requester's private folder";
            return std::nullopt;
        }
        const int daemons = openDaemons(reason);
        if (daemons < 0) {
            ::close(stage);
            return std::nullopt;
        }
        plan.arguments = {"-f", "--", heldPath(stage, fromName), heldPath(daemons, toName)};
        plan.folders = {stage, daemons};
        plan.checkedFolder = daemons;
        plan.checkedName = toName;
        return plan;
    }
    if (trashed && isTrashName(toName, *trashed) && endsWith(toFolder, "/Trash/files")) {
        // From the system folder into the requester's own trash, where it becomes theirs.
        const int daemons = openDaemons(reason);
        if (daemons < 0) {
            return std::nullopt;
        }
        const int trash = openFolder(toFolder, {m_requester}, Last::Requester, m_requester);
        if (trash < 0 || !isPlainFile(daemons, fromName) || !isAbsent(trash, toName)) {
            ::close(daemons);
            if (trash >= 0) {
                ::close(trash);
            }
            *reason = "not a job file going to the requester's trash";
            return std::nullopt;
        }
        plan.arguments = {"-f", "--", heldPath(daemons, fromName), heldPath(trash, toName)};
        plan.folders = {daemons, trash};
        plan.ownedFolder = trash;
        plan.ownedName = toName;
        return plan;
    }
    return std::nullopt;
}

int HelperPolicy::finish(Plan &plan, int status) const
{
    if (plan.checkedFolder >= 0 && !isPlainFile(plan.checkedFolder, plan.checkedName) &&
        !isAbsent(plan.checkedFolder, plan.checkedName)) {
        // Swapped for a link, a pipe or a folder after the check: it does not stay.
        removeEntry(plan.checkedFolder, plan.checkedName.c_str());
        PrivilegedHelper::log(LOG_WARNING,
                              "Removed " + plan.checkedName + ": it was not a plain file");
        status = status == 0 ? 1 : status;
    } else if (plan.checkedFolder >= 0) {
        // Root's from the moment it arrives, with the mode the system gives it next, not
        // only once its chown and chmod follow.
        const int fd = ::openat(plan.checkedFolder, plan.checkedName.c_str(),
                                O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
        if (fd >= 0) {
            [[maybe_unused]] const int owned = ::fchown(fd, 0, 0);
            [[maybe_unused]] const int mode = ::fchmod(fd, 0644);
            ::close(fd);
        }
    }
    if (plan.ownedFolder >= 0 && status == 0) {
        [[maybe_unused]] const int ignored =
            ::fchownat(plan.ownedFolder, plan.ownedName.c_str(), m_requester, m_requesterGroup,
                       AT_SYMLINK_NOFOLLOW);
    }
    discard(plan);
    return status;
}

void HelperPolicy::discard(Plan &plan) const
{
    for (const int fd : plan.folders) {
        ::close(fd);
    }
    plan.folders.clear();
}

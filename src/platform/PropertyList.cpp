#include "PropertyList.h"

#include "FileNames.h"
#include "PlistXmlReader.h"
#include "PosixFile.h"

#include <QHash>
#include <QRandomGenerator>

#include <plist/plist.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Seconds between the Unix epoch and the property-list epoch (2001-01-01 00:00:00 UTC).
constexpr qint64 kPlistEpochOffset = 978307200;
// Deeper nesting than this is treated as malformed: no real property list comes close,
// and the converters below recurse once per level.
constexpr int kMaxDepth = 256;

struct PlistDeleter
{
    void operator()(void *node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

// The XML reader of libplist recurses once per nesting level; refuse absurd nesting before
// handing the text over, so a hostile file cannot exhaust the stack.
bool xmlNestingWithinLimit(const QByteArray &bytes)
{
    int depth = 0;
    const char *p = bytes.constData();
    const char *end = p + bytes.size();
    while (p < end) {
        p = static_cast<const char *>(memchr(p, '<', static_cast<size_t>(end - p)));
        if (!p) {
            break;
        }
        ++p;
        const bool closing = p < end && *p == '/';
        const char *name = closing ? p + 1 : p;
        const auto starts = [&](const char *word, size_t len) {
            return static_cast<size_t>(end - name) > len && memcmp(name, word, len) == 0 &&
                   (name[len] == '>' || name[len] == ' ' || name[len] == '\t' ||
                    name[len] == '\n' || name[len] == '\r');
        };
        if (starts("array", 5) || starts("dict", 4)) {
            // A self-closing <array/> opens nothing.
            const char *close =
                static_cast<const char *>(memchr(name, '>', static_cast<size_t>(end - name)));
            const bool selfClosing = close && close > name && close[-1] == '/';
            if (closing) {
                --depth;
            } else if (!selfClosing && ++depth > kMaxDepth) {
                return false;
            }
        }
    }
    return true;
}

// Big-endian unsigned number of 1 to 8 bytes.
uint64_t bigEndian(const uint8_t *p, unsigned size)
{
    uint64_t v = 0;
    for (unsigned i = 0; i < size; ++i) {
        v = (v << 8) | p[i];
    }
    return v;
}

// The binary reader of libplist recurses once per nesting level as well, and it copies an
// object once for every reference to it, so thirty arrays that each hold the next one twice
// would become a billion nodes. Walk the object graph of a binary file without recursion
// first: nesting deeper than kMaxDepth, an object that contains itself, or more nodes once
// shared objects are copied than a generous multiple of the objects in the file, is refused.
// What does not make sense to this walk (bad offsets, references or counts) is left for
// libplist to refuse. A dictionary key in UTF-16 that holds U+0000 is refused too: libplist
// turns it into a key whose length disagrees with its C string and then asserts (aborts the
// process) when the key is read.
bool binaryWithinLimits(const QByteArray &bytes)
{
    const auto *data = reinterpret_cast<const uint8_t *>(bytes.constData());
    const uint64_t size = static_cast<uint64_t>(bytes.size());
    if (size < 8 + 32) {
        return true;
    }
    const uint8_t *trailer = data + size - 32;
    const unsigned offsetSize = trailer[6];
    const unsigned refSize = trailer[7];
    const uint64_t count = bigEndian(trailer + 8, 8);
    const uint64_t top = bigEndian(trailer + 16, 8);
    const uint64_t table = bigEndian(trailer + 24, 8);
    const uint64_t objectsEnd = size - 32;
    if (offsetSize == 0 || offsetSize > 8 || refSize == 0 || refSize > 8 || count == 0 ||
        top >= count || table < 8 || table >= objectsEnd ||
        count > (objectsEnd - table) / offsetSize) {
        return true;
    }

    // An object's marker type and element count, and where its contents start; false when
    // the object lies outside the file.
    struct Header
    {
        unsigned type = 0;
        uint64_t n = 0;
        uint64_t pos = 0;
    };
    const auto headerOf = [&](uint64_t object, Header &header) {
        const uint64_t offset = bigEndian(data + table + object * offsetSize, offsetSize);
        if (offset < 8 || offset >= objectsEnd) {
            return false;
        }
        const uint8_t marker = data[offset];
        header.type = marker >> 4;
        header.n = marker & 0x0F;
        header.pos = offset + 1;
        // Data, strings and containers give a longer count in an integer object that follows.
        const bool counted = (header.type >= 0x4 && header.type <= 0x6) || header.type >= 0xA;
        if (header.n == 0x0F && counted) {
            const uint64_t pos = header.pos;
            if (pos >= objectsEnd || (data[pos] >> 4) != 0x1) {
                return false;
            }
            const unsigned intSize = 1u << (data[pos] & 0x0F);
            if (intSize > 8 || pos + 1 + intSize > objectsEnd) {
                return false;
            }
            header.n = bigEndian(data + pos + 1, intSize);
            header.pos = pos + 1 + intSize;
        }
        return true;
    };
    const auto keyHoldsNul = [&](uint64_t object) {
        Header key;
        if (object >= count || !headerOf(object, key) || key.type != 0x6) {
            return false;
        }
        const uint64_t units = std::min<uint64_t>(key.n, (objectsEnd - key.pos) / 2);
        for (uint64_t i = 0; i < units; ++i) {
            if (data[key.pos + 2 * i] == 0 && data[key.pos + 2 * i + 1] == 0) {
                return true;
            }
        }
        return false;
    };

    // The references of a container object: [first, first + n * refSize).
    struct Refs
    {
        uint64_t first = 0;
        uint64_t n = 0;
        bool refused = false;
    };
    const auto refsOf = [&](uint64_t object) -> Refs {
        Header header;
        if (!headerOf(object, header)) {
            return {};
        }
        const unsigned type = header.type;
        if (type != 0xA && type != 0xC && type != 0xD) {
            return {};
        }
        uint64_t n = header.n;
        const uint64_t pos = header.pos;
        const uint64_t room = (objectsEnd - pos) / refSize;
        if (type == 0xD) {
            if (n > room / 2) {
                return {};
            }
            for (uint64_t i = 0; i < n; ++i) {
                if (keyHoldsNul(bigEndian(data + pos + i * refSize, refSize))) {
                    return {0, 0, true};
                }
            }
            n *= 2;
        } else if (n > room) {
            return {};
        }
        return {pos, n};
    };

    enum : uint8_t
    {
        Unseen,
        Open,
        Done
    };
    std::vector<uint8_t> state(count, Unseen);
    struct Frame
    {
        uint64_t object;
        Refs refs;
        uint64_t next;
    };
    std::vector<Frame> stack;
    stack.push_back({top, refsOf(top), 0});
    if (stack.back().refs.refused) {
        return false;
    }
    state[top] = Open;
    // An object may be referenced more than once; each is walked once, and its height
    // (the nesting below it) counts for every later path that reaches it.
    std::vector<uint16_t> height(count, 0);
    // Nodes each object becomes with its contents copied, saturating just above the limit.
    const uint64_t maxNodes = std::max<uint64_t>(1000000, 16 * count);
    std::vector<uint64_t> nodes(count, 1);
    const auto addNodes = [&](uint64_t &total, uint64_t more) {
        total = std::min(total + more, maxNodes + 1);
        return total <= maxNodes;
    };
    while (!stack.empty()) {
        Frame &frame = stack.back();
        if (frame.next == frame.refs.n) {
            const uint64_t finished = frame.object;
            state[finished] = Done;
            stack.pop_back();
            if (!stack.empty()) {
                const uint64_t parentObject = stack.back().object;
                uint16_t &parent = height[parentObject];
                parent = std::max<uint16_t>(parent, static_cast<uint16_t>(height[finished] + 1));
                if (!addNodes(nodes[parentObject], nodes[finished])) {
                    return false;
                }
            }
            continue;
        }
        const uint64_t child = bigEndian(data + frame.refs.first + frame.next * refSize, refSize);
        ++frame.next;
        if (child >= count) {
            continue;
        }
        if (state[child] == Open) {
            return false; // contains itself
        }
        if (state[child] == Done) {
            uint16_t &own = height[frame.object];
            own = std::max<uint16_t>(own, static_cast<uint16_t>(height[child] + 1));
            if (stack.size() + height[child] > static_cast<size_t>(kMaxDepth) ||
                !addNodes(nodes[frame.object], nodes[child])) {
                return false;
            }
            continue;
        }
        if (stack.size() > static_cast<size_t>(kMaxDepth)) {
            return false;
        }
        state[child] = Open;
        stack.push_back({child, refsOf(child), 0});
        if (stack.back().refs.refused) {
            return false;
        }
    }
    return true;
}

// The key of a dictionary item, from the same per-thread store of keys as the direct reader.
QString keyOf(plist_t item)
{
    plist_t keyNode = plist_dict_item_get_key(item);
    uint64_t length = 0;
    const char *key = keyNode ? plist_get_string_ptr(keyNode, &length) : nullptr;
    char *copy = nullptr;
    if (!key && keyNode) {
        plist_get_key_val(keyNode, &copy);
        key = copy;
        length = copy ? strlen(copy) : 0;
    }
    if (!key) {
        return QString();
    }
    const QString result =
        PlistXmlReader::dictionaryKey(QByteArray::fromRawData(key, static_cast<qsizetype>(length)));
    free(copy);
    return result;
}

std::optional<PlistValue> fromNode(plist_t node, int depth)
{
    if (!node || depth > kMaxDepth) {
        return std::nullopt;
    }
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        uint8_t b = 0;
        plist_get_bool_val(node, &b);
        return PlistValue(b != 0);
    }
    case PLIST_UINT: {
        uint64_t u = 0;
        plist_get_uint_val(node, &u);
        return PlistValue(static_cast<qint64>(u));
    }
    case PLIST_REAL: {
        double d = 0;
        plist_get_real_val(node, &d);
        return PlistValue(d);
    }
    case PLIST_STRING:
    case PLIST_KEY: {
        uint64_t len = 0;
        const char *s = plist_get_string_ptr(node, &len);
        if (!s) {
            char *copy = nullptr;
            plist_get_string_val(node, &copy);
            PlistValue v(FileNames::decode(QByteArray(copy ? copy : "")));
            free(copy);
            return v;
        }
        // Strings hold paths, which are bytes: kept as they are, also when not UTF-8.
        return PlistValue(
            FileNames::decode(QByteArray::fromRawData(s, static_cast<qsizetype>(len))));
    }
    case PLIST_DATA: {
        uint64_t len = 0;
        const char *d = plist_get_data_ptr(node, &len);
        return PlistValue(QByteArray(d, static_cast<qsizetype>(len)));
    }
    case PLIST_DATE: {
        int32_t sec = 0;
        int32_t usec = 0;
        plist_get_date_val(node, &sec, &usec);
        const qint64 ms = (static_cast<qint64>(sec) + kPlistEpochOffset) * 1000 + usec / 1000;
        return PlistValue(QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC));
    }
    case PLIST_ARRAY: {
        const uint32_t n = plist_array_get_size(node);
        PlistArray array;
        array.reserve(n);
        for (uint32_t i = 0; i < n; ++i) {
            auto item = fromNode(plist_array_get_item(node, i), depth + 1);
            if (!item) {
                return std::nullopt;
            }
            array.push_back(std::move(*item));
        }
        return PlistValue(std::move(array));
    }
    case PLIST_DICT: {
        PlistDict dict;
        dict.reserve(static_cast<int>(plist_dict_get_size(node)));
        plist_dict_iter it = nullptr;
        plist_dict_new_iter(node, &it);
        if (!it) {
            return PlistValue(std::move(dict));
        }
        for (;;) {
            plist_t item = nullptr;
            plist_dict_next_item(node, it, nullptr, &item);
            if (!item) {
                break;
            }
            auto value = fromNode(item, depth + 1);
            if (!value) {
                free(it);
                return std::nullopt;
            }
            dict.insert(keyOf(item), std::move(*value));
        }
        free(it);
        return PlistValue(std::move(dict));
    }
    default:
        return std::nullopt;
    }
}

plist_t toNode(const PlistValue &value)
{
    switch (value.type()) {
    case PlistValue::Type::String:
        return plist_new_string(FileNames::encode(value.string()).constData());
    case PlistValue::Type::Integer:
        return plist_new_uint(static_cast<uint64_t>(value.integerValue()));
    case PlistValue::Type::Real:
        return plist_new_real(value.doubleValue());
    case PlistValue::Type::Boolean:
        return plist_new_bool(value.boolValue() ? 1 : 0);
    case PlistValue::Type::Date: {
        const qint64 ms = value.date().toMSecsSinceEpoch() - kPlistEpochOffset * 1000;
        qint64 sec = ms / 1000;
        if (ms % 1000 < 0) {
            --sec;
        }
        sec = std::clamp<qint64>(sec, std::numeric_limits<int32_t>::min(),
                                 std::numeric_limits<int32_t>::max());
        // XML dates hold whole seconds. libplist would turn a date before 2001 with a
        // fraction into the next second (it truncates toward the epoch), so drop the
        // fraction here, toward the past.
        return plist_new_date(static_cast<int32_t>(sec), 0);
    }
    case PlistValue::Type::Data: {
        const QByteArray d = value.data();
        return plist_new_data(d.constData(), static_cast<uint64_t>(d.size()));
    }
    case PlistValue::Type::Array: {
        plist_t node = plist_new_array();
        for (const PlistValue &item : value.array()) {
            if (plist_t child = toNode(item)) {
                plist_array_append_item(node, child);
            }
        }
        return node;
    }
    case PlistValue::Type::Dictionary: {
        plist_t node = plist_new_dict();
        for (const auto &entry : value.dict()) {
            if (plist_t child = toNode(entry.value)) {
                plist_dict_set_item(node, entry.key.toUtf8().constData(), child);
            }
        }
        return node;
    }
    case PlistValue::Type::None:
        break;
    }
    return nullptr;
}

} // namespace

namespace {

std::optional<PlistValue> parseBytes(const char *bytes, qsizetype size, bool direct)
{
    if (size <= 0 || size > static_cast<qsizetype>(std::numeric_limits<uint32_t>::max())) {
        return std::nullopt;
    }
    const QByteArray view = QByteArray::fromRawData(bytes, size);
    const bool binary = plist_is_binary(bytes, static_cast<uint32_t>(size)) != 0;
    if (direct && !binary) {
        if (std::optional<PlistValue> value = PlistXmlReader::read(bytes, size)) {
            return value;
        }
    }
    if (binary ? !binaryWithinLimits(view) : !xmlNestingWithinLimit(view)) {
        return std::nullopt;
    }
    plist_t root = nullptr;
    plist_from_memory(bytes, static_cast<uint32_t>(size), &root);
    PlistPtr guard(root);
    if (!root) {
        return std::nullopt;
    }
    return fromNode(root, 0);
}

} // namespace

std::optional<PlistValue> PropertyList::parse(const QByteArray &bytes)
{
    return parseBytes(bytes.constData(), bytes.size(), true);
}

std::optional<PlistValue> PropertyList::parseGeneral(const QByteArray &bytes)
{
    return parseBytes(bytes.constData(), bytes.size(), false);
}

namespace {

// Reads the whole content of a regular file into buffer (reused from call to call, so
// that reading many small files allocates nothing); false when there is no such file or it
// cannot be read. The name goes to the system as the bytes it stands for (FileNames), so
// names that are not UTF-8 work too.
bool readFile(const QString &path, std::vector<char> &buffer, qsizetype *size)
{
    if (path.isEmpty()) {
        return false;
    }
    // Not blocking: a FIFO or a device in place of the file must not hold the reader up
    // before its type is seen. For a regular file the flag changes nothing.
    const int fd =
        ::open(FileNames::encode(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) {
        return false;
    }
    struct stat st
    {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return false;
    }
    // The size is a hint only: the file may grow or shrink while it is read.
    if (buffer.size() < static_cast<size_t>(st.st_size) + 1) {
        buffer.resize(static_cast<size_t>(st.st_size) + 1);
    }
    size_t used = 0;
    for (;;) {
        if (used == buffer.size()) {
            buffer.resize(buffer.size() * 2);
        }
        const ssize_t n = ::read(fd, buffer.data() + used, buffer.size() - used);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            ::close(fd);
            return false;
        }
        if (n == 0) {
            break;
        }
        used += static_cast<size_t>(n);
    }
    ::close(fd);
    *size = static_cast<qsizetype>(used);
    return true;
}

QString systemError(const char *what, const QString &path, int error)
{
    return QStringLiteral("%1 %2: %3")
        .arg(QLatin1String(what), path, QString::fromLocal8Bit(strerror(error)));
}

bool writeAll(int fd, const QByteArray &bytes)
{
    const char *p = bytes.constData();
    qsizetype left = bytes.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, p, static_cast<size_t>(left));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            if (n == 0) {
                errno = EIO;
            }
            return false;
        }
        p += n;
        left -= n;
    }
    return true;
}

// The writer's temporary files: ".NAME.XXXXXX" beside the target, NAME shortened when long.
QByteArray temporaryPrefix(const QByteArray &base)
{
    return '.' + (base.size() > 200 ? QByteArray("plist") : base) + '.';
}

constexpr int kTemporarySuffix = 6;

bool isTemporaryName(const QByteArray &name)
{
    if (name.size() < 3 + kTemporarySuffix || !name.startsWith('.') ||
        name[name.size() - kTemporarySuffix - 1] != '.') {
        return false;
    }
    for (qsizetype i = name.size() - kTemporarySuffix; i < name.size(); ++i) {
        if (!isalnum(static_cast<unsigned char>(name[i]))) {
            return false;
        }
    }
    return true;
}

// The target's folder, opened once: everything happens relative to it, so that a folder
// swapped for a link meanwhile cannot send the file elsewhere. Its last component in *base.
int openTargetFolder(const QByteArray &target, QByteArray *base)
{
    const qsizetype slash = target.lastIndexOf('/');
    const QByteArray folder = slash < 0 ? QByteArray(".") : target.left(slash == 0 ? 1 : slash);
    *base = slash < 0 ? target : target.mid(slash + 1);
    return PosixFile::openFolder(folder, false);
}

// Creates a new temporary file in dir for base and holds an exclusive lock on it for as
// long as the descriptor is open: a scan removes only temporaries whose writer is gone (see
// removeStaleTemporaries). As root it belongs to the folder's owner. The descriptor, or -1
// with errno set.
int createTemporary(int dir, const QByteArray &base, mode_t mode, QByteArray *temporary)
{
    const QByteArray prefix = temporaryPrefix(base);
    static const char alphabet[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    for (int attempt = 0; attempt < 100; ++attempt) {
        *temporary = prefix;
        for (int i = 0; i < kTemporarySuffix; ++i) {
            *temporary += alphabet[QRandomGenerator::global()->bounded(62)];
        }
        // Less the umask, as any new file; an existing file's mode is set by the caller.
        const int fd = ::openat(dir, temporary->constData(),
                                O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
        if (fd < 0 && errno == EEXIST) {
            continue;
        }
        if (fd < 0) {
            return -1;
        }
        PosixFile::handToFolderOwner(dir, fd);
        // A scan may have found it between its creation and the lock and taken it for a
        // leftover: then it is no longer at its name, and another name is tried.
        // Where locks are not supported, no scan can lock it either and it is simply kept.
        if (::flock(fd, LOCK_EX) != 0) {
            return fd;
        }
        struct stat own
        {};
        struct stat named
        {};
        if (::fstat(fd, &own) == 0 &&
            ::fstatat(dir, temporary->constData(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
            own.st_ino == named.st_ino && own.st_dev == named.st_dev) {
            return fd;
        }
        ::close(fd);
    }
    errno = EEXIST;
    return -1;
}

// The first half of an atomic write: a new file beside the target, written and flushed to
// disk, not yet renamed over it. An existing file's permissions are kept; for an ordinary
// user a symbolic link stays a link and its target is replaced.
std::unique_ptr<PropertyList::StagedWrite> stageAtomically(const QByteArray &bytes,
                                                           const QString &path, QString *error)
{
    QByteArray target = FileNames::encode(path);
    // As root a link at the name is replaced, never followed: whoever planted it must not
    // choose which file root writes.
    const bool followLinks = ::geteuid() != 0;
    struct stat st
    {};
    bool exists = ::lstat(target.constData(), &st) == 0;
    if (exists && S_ISLNK(st.st_mode)) {
        char *resolved = followLinks ? ::realpath(target.constData(), nullptr) : nullptr;
        if (resolved) {
            target = resolved;
            free(resolved);
            exists = ::stat(target.constData(), &st) == 0;
        } else {
            exists = false; // a dangling link is replaced by the file
        }
    }
    if (exists && S_ISDIR(st.st_mode)) {
        if (error) {
            *error = systemError("Cannot replace", path, EISDIR);
        }
        return nullptr;
    }
    auto staged = std::make_unique<PropertyList::StagedWrite>();
    staged->path = path;
    staged->bytes = bytes;
    staged->dir = openTargetFolder(target, &staged->base);
    staged->fd =
        staged->dir < 0 ? -1 : createTemporary(staged->dir, staged->base, 0666, &staged->temporary);
    if (staged->fd < 0) {
        if (error) {
            *error = systemError("Cannot create a temporary file for", path, errno);
        }
        return nullptr;
    }
    const auto fail = [&](const char *what) {
        if (error) {
            *error = systemError(what, path, errno);
        }
        return nullptr;
    };
    if (exists && ::fchmod(staged->fd, st.st_mode & 07777) != 0) {
        return fail("Cannot keep the permissions of");
    }
    if (!writeAll(staged->fd, bytes)) {
        return fail("Cannot write");
    }
    if (::fsync(staged->fd) != 0) {
        return fail("Cannot flush");
    }
    return staged;
}

// Writes bytes to path atomically: staged, then renamed over the target. Whatever happens,
// the target is either the old file or the new one, and no temporary file stays behind.
bool writeAtomically(const QByteArray &bytes, const QString &path, QString *error)
{
    const std::unique_ptr<PropertyList::StagedWrite> staged = stageAtomically(bytes, path, error);
    return staged && staged->commit(error);
}

// Writes bytes to a new file at path, which appears whole or not at all: a locked temporary
// beside it, written and flushed, then linked to the name, which fails when the name is
// taken. *taken tells that case from the others.
bool createExclusively(const QByteArray &bytes, const QString &path, bool *taken)
{
    QByteArray base;
    const int dir = openTargetFolder(FileNames::encode(path), &base);
    if (dir < 0) {
        return false;
    }
    QByteArray temporary;
    const int fd = createTemporary(dir, base, 0644, &temporary);
    if (fd < 0) {
        const int saved = errno;
        ::close(dir);
        errno = saved;
        return false;
    }
    const bool linked = writeAll(fd, bytes) && ::fsync(fd) == 0 &&
                        ::linkat(dir, temporary.constData(), dir, base.constData(), 0) == 0;
    const int saved = errno;
    ::unlinkat(dir, temporary.constData(), 0);
    ::close(fd);
    ::close(dir);
    if (!linked && taken) {
        *taken = saved == EEXIST;
    }
    errno = saved;
    return linked;
}

// toXml gives empty text for a value it cannot express; such text is never written.
bool unwritable(const QByteArray &xml, QString *error)
{
    if (xml.isEmpty() && error) {
        *error = QStringLiteral("The value cannot be written as a property list.");
    }
    return xml.isEmpty();
}

} // namespace

std::optional<PlistValue> PropertyList::read(const QString &path)
{
    thread_local std::vector<char> buffer;
    qsizetype size = 0;
    if (!readFile(path, buffer, &size)) {
        return std::nullopt;
    }
    auto value = parseBytes(buffer.data(), size, true);
    // Do not keep the memory of a huge file for the rest of the thread.
    if (buffer.size() > 1024 * 1024) {
        std::vector<char>().swap(buffer);
    }
    return value;
}

std::optional<PlistDict> PropertyList::readDictionary(const QString &path)
{
    auto value = read(path);
    if (!value || !value->isDictionary()) {
        return std::nullopt;
    }
    // The value is the only owner of its dictionary: take it instead of copying it.
    return std::move(value->mutableDict());
}

std::optional<PlistDict> PropertyList::readDictionaryToUpdate(const QString &path)
{
    if (std::optional<PlistDict> dict = readDictionary(path)) {
        return dict;
    }
    struct stat st
    {};
    if (::lstat(FileNames::encode(path).constData(), &st) == 0 || errno != ENOENT) {
        return std::nullopt;
    }
    return PlistDict();
}

std::optional<PlistArray> PropertyList::readArray(const QString &path)
{
    auto value = read(path);
    if (!value || !value->isArray()) {
        return std::nullopt;
    }
    return std::move(value->mutableArray());
}

QByteArray PropertyList::toXml(const PlistValue &value)
{
    PlistPtr root(toNode(value));
    if (!root) {
        return QByteArray();
    }
    char *xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(static_cast<plist_t>(root.get()), &xml, &length);
    QByteArray out(xml, static_cast<qsizetype>(length));
    plist_to_xml_free(xml);
    // A raw carriage return in a string would be folded into a line break by every XML
    // reader; as a character reference it survives. The markup itself holds none.
    out.replace('\r', "&#13;");
    return out;
}

bool PropertyList::createXml(const PlistValue &value, const QString &path, bool *taken)
{
    if (taken) {
        *taken = false;
    }
    const QByteArray xml = toXml(value);
    return !xml.isEmpty() && createExclusively(xml, path, taken);
}

void PropertyList::removeStaleTemporaries(const QString &folder, const QString &prefix)
{
    DIR *dir = ::opendir(FileNames::encode(folder).constData());
    if (!dir) {
        return;
    }
    const QByteArray wanted = '.' + FileNames::encode(prefix);
    const int dirFd = ::dirfd(dir);
    while (const dirent *entry = ::readdir(dir)) {
        const QByteArray name(entry->d_name);
        if (!name.startsWith(wanted) || !isTemporaryName(name)) {
            continue;
        }
        // Never through a link, never blocking on what is not a file; a writer at work
        // holds the lock.
        const int fd = ::openat(dirFd, entry->d_name,
                                O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        if (fd < 0) {
            continue;
        }
        struct stat own
        {};
        struct stat named
        {};
        if (::fstat(fd, &own) == 0 && S_ISREG(own.st_mode) && ::flock(fd, LOCK_EX | LOCK_NB) == 0 &&
            ::fstatat(dirFd, entry->d_name, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
            own.st_ino == named.st_ino && own.st_dev == named.st_dev) {
            ::unlinkat(dirFd, entry->d_name, 0);
        }
        ::close(fd);
    }
    ::closedir(dir);
}

bool PropertyList::writeXml(const PlistValue &value, const QString &path, QString *error)
{
    const QByteArray xml = toXml(value);
    return !unwritable(xml, error) && writeAtomically(xml, path, error);
}

PropertyList::StagedWrite::~StagedWrite()
{
    if (fd >= 0 && !committed) {
        ::unlinkat(dir, temporary.constData(), 0);
    }
    if (fd >= 0) {
        ::close(fd);
    }
    if (dir >= 0) {
        ::close(dir);
    }
    if (previous >= 0) {
        ::close(previous);
    }
}

bool PropertyList::StagedWrite::commit(QString *error)
{
    // Renamed while still open, and so still locked: a scan never takes it for a leftover.
    committed = ::renameat(dir, temporary.constData(), dir, base.constData()) == 0;
    if (!committed && error) {
        *error = systemError("Cannot replace", path, errno);
    }
    return committed;
}

std::unique_ptr<PropertyList::StagedWrite>
PropertyList::stageXml(const QByteArray &xml, const QString &path, QString *error)
{
    if (unwritable(xml, error)) {
        return nullptr;
    }
    std::unique_ptr<StagedWrite> staged = stageAtomically(xml, path, error);
    if (staged) {
        // O_PATH opens nothing that could block, and pins whatever is at the name.
        staged->previous =
            ::openat(staged->dir, staged->base.constData(), O_PATH | O_NOFOLLOW | O_CLOEXEC);
    }
    return staged;
}

#include "HelperProtocol.h"

#include <signal.h>

namespace {

bool isPlain(unsigned char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_' || c == '.' || c == '~' || c == '/';
}

int hexValue(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return -1;
}

} // namespace

std::string HelperProtocol::encodeField(const std::string &bytes)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(bytes.size());
    for (const char ch : bytes) {
        const auto c = static_cast<unsigned char>(ch);
        if (isPlain(c)) {
            out += ch;
        } else {
            out += '%';
            out += digits[c >> 4];
            out += digits[c & 0x0F];
        }
    }
    return out;
}

std::optional<std::string> HelperProtocol::decodeField(const std::string &field)
{
    std::string out;
    out.reserve(field.size());
    for (std::size_t i = 0; i < field.size(); ++i) {
        const auto c = static_cast<unsigned char>(field[i]);
        if (c == '%') {
            if (i + 2 >= field.size()) {
                return std::nullopt;
            }
            const int high = hexValue(field[i + 1]);
            const int low = hexValue(field[i + 2]);
            if (high < 0 || low < 0) {
                return std::nullopt;
            }
            out += static_cast<char>((high << 4) | low);
            i += 2;
        } else if (isPlain(c)) {
            out += static_cast<char>(c);
        } else {
            return std::nullopt;
        }
    }
    return out;
}

std::string HelperProtocol::line(const std::vector<std::string> &fields)
{
    std::string out;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (i > 0) {
            out += ' ';
        }
        out += encodeField(fields[i]);
    }
    out += '\n';
    return out;
}

std::optional<std::vector<std::string>> HelperProtocol::fields(const std::string &line)
{
    std::vector<std::string> out;
    std::size_t start = 0;
    for (;;) {
        const std::size_t space = line.find(' ', start);
        const std::string raw =
            line.substr(start, space == std::string::npos ? std::string::npos : space - start);
        auto decoded = decodeField(raw);
        if (!decoded) {
            return std::nullopt;
        }
        out.push_back(std::move(*decoded));
        if (space == std::string::npos) {
            return out;
        }
        start = space + 1;
    }
}

void HelperProtocol::initSpawnAttributes(posix_spawnattr_t *attributes)
{
    posix_spawnattr_init(attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(attributes, &none);
    sigset_t all;
    sigfillset(&all);
    posix_spawnattr_setsigdefault(attributes, &all);
    posix_spawnattr_setflags(attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
}

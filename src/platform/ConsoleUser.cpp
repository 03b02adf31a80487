#include "ConsoleUser.h"

#include <systemd/sd-login.h>

#include <pwd.h>

#include <cstdlib>

std::optional<QString> ConsoleUser::query()
{
    char *session = nullptr;
    uid_t uid = 0;
    if (sd_seat_get_active("seat0", &session, &uid) < 0 || !session) {
        return std::nullopt;
    }
    std::optional<QString> result;
    char *sessionClass = nullptr;
    if (sd_session_get_class(session, &sessionClass) >= 0 && sessionClass &&
        QLatin1String(sessionClass) == QLatin1String("greeter")) {
        // The login screen holds the console: nobody is logged in.
        result = QStringLiteral("loginwindow");
    } else {
        char buffer[16384];
        struct passwd entry
        {};
        struct passwd *found = nullptr;
        if (getpwuid_r(uid, &entry, buffer, sizeof buffer, &found) == 0 && found) {
            result = QString::fromLocal8Bit(found->pw_name);
        }
    }
    free(sessionClass);
    free(session);
    return result;
}

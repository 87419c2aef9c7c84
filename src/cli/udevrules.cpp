#include "udevrules.h"

#include <QFile>

QString installedUdevRules()
{
    // udev(7), in order of precedence.
    constexpr const char *folders[] = {"/etc", "/run", "/usr/local/lib", "/usr/lib", "/lib"};
    for (const char *folder : folders) {
        QString file =
            QLatin1String(folder) + QStringLiteral("/udev/rules.d/70-capso-config.rules");
        if (QFile::exists(file)) {
            return file;
        }
    }
    return {};
}

#include "udevrules.h"

#include "udevrulestext.h"

#include <QFileInfo>

UdevRules installedUdevRules(const QString &root)
{
    // udev(7), in order of precedence.
    constexpr const char *folders[] = {"/etc", "/run", "/usr/local/lib", "/usr/lib", "/lib"};
    for (const char *folder : folders) {
        const QString file =
            root + QLatin1String(folder) + QStringLiteral("/udev/rules.d/70-capso-config.rules");
        const QFileInfo facts(file);
        if (facts.exists() || facts.isSymLink()) {
            return {file, !facts.exists() || facts.size() == 0}; // or a link that leads nowhere
        }
    }
    return {};
}

const char *udevRulesText()
{
    return s_udevRulesText;
}

#include "udevrules.h"

#include "udevrulestext.h"

#include <QFile>
#include <QFileInfo>

namespace {

bool differsFromOurs(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) && file.readAll() != udevRulesText();
}

} // namespace

const char *UdevRules::state() const
{
    if (file.isEmpty()) {
        return "missing";
    }
    if (masked) {
        return "masked";
    }
    return differs ? "different" : "installed";
}

UdevRules installedUdevRules(const QString &root)
{
    // udev(7), in order of precedence.
    constexpr const char *folders[] = {"/etc", "/run", "/usr/local/lib", "/usr/lib", "/lib"};
    for (const char *folder : folders) {
        const QString file =
            root + QLatin1String(folder) + QStringLiteral("/udev/rules.d/70-capso-config.rules");
        const QFileInfo facts(file);
        if (facts.exists() || facts.isSymLink()) {
            const bool masked = !facts.exists() || facts.size() == 0; // or a link to nowhere
            return {file, masked, !masked && differsFromOurs(file)};
        }
    }
    return {};
}

const char *udevRulesText()
{
    return s_udevRulesText;
}

#include "surroundings.h"

#include <QByteArray>

#include <algorithm>

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool names(char *const *members, const char *user)
{
    for (; *members; ++members) {
        if (qstrcmp(*members, user) == 0) {
            return true;
        }
    }
    return false;
}

bool isGroupOfThisSession(gid_t group)
{
    std::vector<gid_t> groups(std::size_t(std::max(getgroups(0, nullptr), 0)));
    const int count = getgroups(int(groups.size()), groups.data());
    groups.resize(std::size_t(std::max(count, 0)));
    return getegid() == group || std::count(groups.begin(), groups.end(), group) != 0;
}

} // namespace

Machine lookAround(const QString &program)
{
    Machine machine;
    machine.rules = installedUdevRules();
    machine.program = program;
    const passwd *user = getpwuid(getuid());
    const QByteArray name = user ? user->pw_name : "";
    const gid_t usualGroup = user ? user->pw_gid : getgid();
    if (const group *plugdev = getgrnam(Machine::Group)) {
        machine.hasGroup = true;
        machine.isMember =
            usualGroup == plugdev->gr_gid || names(plugdev->gr_mem, name.constData());
        machine.isMemberNow = isGroupOfThisSession(plugdev->gr_gid);
    }
    return machine;
}

Node lookAt(const usbview::SystemDevice &device)
{
    constexpr mode_t readAndWrite = S_IRGRP | S_IWGRP;
    struct stat facts = {};
    Node node;
    const group *plugdev = getgrnam(Machine::Group);
    node.isGroups = plugdev && stat(qPrintable(nodeOf(device)), &facts) == 0 &&
                    facts.st_gid == plugdev->gr_gid &&
                    (facts.st_mode & readAndWrite) == readAndWrite;
    return node;
}

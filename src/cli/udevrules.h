#pragma once

#include <QString>

// The file with this program's udev rules as udev would read it: the first of the folders that has
// one.
struct UdevRules
{
    QString file; // empty when none has
    // An empty file or a link to /dev/null, by which udev is told to forget the file of that name
    // that a package has installed.
    bool masked = false;
    // It can be read, and is not what this program carries: another version's, or edited.
    bool differs = false;

    bool work() const { return !file.isEmpty() && !masked; }
    // For scripts: "installed", "different", "masked" or "missing".
    const char *state() const;
    // The file that udev obeys; empty when it obeys none.
    QString inForce() const { return masked ? QString() : file; }
};

UdevRules installedUdevRules(const QString &root = QString());

// The rules themselves, for who has no file of them.
const char *udevRulesText();

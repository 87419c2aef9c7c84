#include "updaterun.h"

#include "libziptexts.h"
#include "updatetask.h"

#include <QSignalSpy>

#include <zip.h>

#include <iostream>

UpdateRun::UpdateRun() : standardLog(std::clog), standardError(std::cerr)
{
    qRegisterMetaType<DeviceDescription>("DeviceDescription");
}

QStringList UpdateRun::run(const DeviceDescription &description,
                           const std::vector<PackageEntry> &package)
{
    const QString path = directory.filePath(QStringLiteral("package.fw"));
    writeFile(path, zipArchive(package));
    return run(description, path);
}

QStringList UpdateRun::run(const DeviceDescription &description, const QString &packagePath)
{
    UpdateTask task(nullptr, *catalogue);
    QStringList events;
    QObject::connect(&task, &UpdateTask::progress, &task,
                     [&](int value) { events.append(QStringLiteral("progress %1").arg(value)); });
    QObject::connect(&task, &UpdateTask::error, &task,
                     [&](const QString &text) { events.append(QStringLiteral("error ") + text); });
    QObject::connect(&task, &UpdateTask::complete, &task,
                     [&] { events.append(QStringLiteral("complete")); });
    QSignalSpy completed(&task, &UpdateTask::complete);

    emit task.start(description, packagePath);
    if (!completed.wait(100000)) {
        return {QStringLiteral("the update did not end")};
    }
    lines = debug.lines();

    const int before = completed.count();
    emit task.start(description, directory.filePath(QStringLiteral("no such file")));
    if (before != 1 || !completed.wait(100000)) {
        return {QStringLiteral("complete came %1 times").arg(completed.count())};
    }
    const QStringList sentinel{"error Cannot open firmware package: " + libzipText(ZIP_ER_NOENT),
                               QStringLiteral("complete")};
    if (events.mid(events.size() - 2) != sentinel) {
        return {QStringLiteral("signals came late: ") + events.join(QStringLiteral(", "))};
    }
    return events.mid(0, events.size() - 2);
}

QStringList progressLines(std::initializer_list<int> values)
{
    QStringList lines;
    for (const int value : values) {
        lines.append(QStringLiteral("progress %1").arg(value));
    }
    return lines;
}

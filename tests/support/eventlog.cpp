#include "eventlog.h"

#include <QJsonDocument>

#include <cstdio>

void EventLog::write(const QString &event, QJsonObject fields)
{
    line += 1;
    fields["n"] = line;
    fields["op"] = operation;
    fields["event"] = event;
    const QByteArray text = QJsonDocument(fields).toJson(QJsonDocument::Compact) + '\n';
    std::fwrite(text.constData(), 1, std::size_t(text.size()), stdout);
    std::fflush(stdout);
}

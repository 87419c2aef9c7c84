#include "scriptedrequests.h"

namespace {

// How long the program waits for a request's end.
int timeLimit(int request)
{
    return request == 0xCF || request == 0xD2 || request == 0xD4 ? 10000 : 1000;
}

} // namespace

QStringList requestsOf(const Script &script)
{
    QStringList lines;
    for (const Step &step : script.steps) {
        lines.append(requestLine(step.request, step.in ? QByteArray() : step.data) +
                     QString(" t%1").arg(timeLimit(step.request.code)));
    }
    return lines;
}

QStringList microcodeRequests(const QByteArray &image)
{
    Script script;
    script.microcode(image, 0, 0);
    return requestsOf(script);
}

QStringList bitstreamRequests(const ProductFacts &product, const QByteArray &image)
{
    Script script;
    script.bitstream(product, image, 0, 0);
    return requestsOf(script);
}

QStringList edidRequests(const QByteArray &edid)
{
    Script script;
    script.edid(edid, 0, 0);
    return requestsOf(script);
}

QStringList loadingRequests(const std::vector<BootSection> &sections)
{
    Images images;
    images.sections = sections;
    Script script;
    script.loadSandbox(images);
    return requestsOf(script);
}

QStringList startRequests(quint32 entry)
{
    Script script;
    script.startSandbox(entry);
    return requestsOf(script);
}

QStringList transferLines(const char *device, const QStringList &requests)
{
    QStringList lines;
    for (const QString &request : requests) {
        lines.append(QStringLiteral("control_transfer %1 %2").arg(QLatin1String(device), request));
    }
    return lines;
}

QStringList opening(const char *device)
{
    const QString name = QLatin1String(device);
    return {"open " + name, "kernel_driver_active " + name + " 0",
            "claim_interface " + name + " 0"};
}

QStringList givingBack(const char *device)
{
    const QString name = QLatin1String(device);
    return {"attach_kernel_driver " + name + " 0", "release_interface " + name + " 0",
            "close " + name};
}

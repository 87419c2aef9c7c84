#include "wiremodel.h"

#include "script.h"

WireModel &WireModel::line(const QString &line)
{
    text.append(line);
    return *this;
}

WireModel &WireModel::request(const Request &request, const QByteArray &data)
{
    return line(requestLine(request, data));
}

WireModel &WireModel::poll(int code, int answer)
{
    return request({Direction::In, code, 0, 0, 1}, QByteArray(1, char(answer)));
}

WireModel &WireModel::openForWork()
{
    return line("open").line("claim 0 ok");
}

WireModel &WireModel::giveBack()
{
    return line("driver-attach 0 busy").line("release 0 ok").line("close");
}

WireModel &WireModel::probe()
{
    return openForWork().poll(0xC8, 1).giveBack();
}

WireModel &WireModel::edid(const QByteArray &bytes)
{
    Script script(busy);
    script.edid(bytes, 2, 100);
    return steps(script);
}

WireModel &WireModel::regularUpdate(const ProductFacts &product, const Images &images)
{
    Script script(busy);
    script.regularUpdate(product, images, 2);
    return steps(script);
}

WireModel &WireModel::loadSandbox(const Images &images)
{
    Script script(busy);
    script.loadSandbox(images);
    return steps(script);
}

WireModel &WireModel::startAt(quint32 address)
{
    Script script(busy);
    script.startSandbox(address);
    return steps(script);
}

WireModel &WireModel::repair(const ProductFacts &product, const Images &images)
{
    openForWork().loadSandbox(images).startAt(images.entry);
    // The boot loader has left by the time that its file is given back; libusb knows, and does not
    // even try to attach a kernel driver.
    line("release 0 no-device").line("close");
    return openForWork().regularUpdate(product, images).giveBack();
}

WireModel &WireModel::steps(const Script &script)
{
    for (const Step &step : script.steps) {
        line(step.line);
    }
    return *this;
}

QStringList goodUpdate(const QList<int> &progress)
{
    QStringList lines;
    for (const int value : progress) {
        lines.append(QString("progress %1").arg(value));
    }
    return lines + QStringList{"complete"};
}

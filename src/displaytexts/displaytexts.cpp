#include "displaytexts.h"

#include "devicedescription.h"
#include "records.h"

#include <QByteArray>
#include <QCoreApplication>

#include <cstddef>

namespace {

QString translated(const char *text)
{
    return QCoreApplication::translate("UpdateRepair", text);
}

// Four lower-case digits with leading zeros, as ids are written everywhere else.
QString usbIdText(quint16 id)
{
    return QStringLiteral("%1").arg(id, 4, 16, QLatin1Char('0'));
}

// The text that starts at offset bytes into the record and goes up to the first zero byte. Firmware
// ends its texts inside their fields; one that does not runs on into the next field, and the end of
// the record stops it.
QString recordText(const InputStatusInfo &status, std::size_t offset)
{
    const char *text = reinterpret_cast<const char *>(&status) + offset;
    const auto length = qstrnlen(text, static_cast<uint>(sizeof(status) - offset));
    return length == 0 ? QStringLiteral("unknown")
                       : QString::fromLatin1(text, static_cast<int>(length));
}

} // namespace

QString deviceRowText(const DeviceDescription &desc)
{
    // One call for all five: in a chain of calls, a "%4" in the serial number would be filled next.
    QString text = translated(QT_TRANSLATE_NOOP("UpdateRepair", "%4 (%3, %5) [%1:%2]"))
                       .arg(usbIdText(desc.vendorId), usbIdText(desc.productId), desc.serialNumber,
                            desc.productName, desc.versionString);
    if (desc.modeText.isEmpty()) {
        return text;
    }
    return text + translated(QT_TRANSLATE_NOOP("UpdateRepair", " (%1)")).arg(desc.modeText);
}

QString inputStatusText(const InputStatusInfo &status)
{
    if (status.width == 0 || status.height == 0 || status.frameRate == 0) {
        return translated(QT_TRANSLATE_NOOP("UpdateRepair", "no signal"));
    }
    const double framesPerSecond = quint32(status.frameRate) / 1000.0;
    return QStringLiteral("%1 %2x%3%4@%5, %6")
        .arg(recordText(status, offsetof(InputStatusInfo, nameText)),
             QString::number(quint16(status.width)), QString::number(quint16(status.height)),
             status.interlaced != 0 ? QStringLiteral("i") : QStringLiteral("p"),
             QStringLiteral("%1").arg(framesPerSecond, 0, 'g', 2),
             recordText(status, offsetof(InputStatusInfo, infoText)));
}

QString requestNotSupportedText()
{
    return translated(QT_TRANSLATE_NOOP("UpdateRepair", "request not supported"));
}

QString doNotInterruptText()
{
    return translated(QT_TRANSLATE_NOOP("UpdateRepair", "DO NOT INTERRUPT"));
}

QString sessionHoldText()
{
    return translated(QT_TRANSLATE_NOOP("UpdateRepair",
                                        "A device is being updated. It needs repair if the "
                                        "update is interrupted."));
}

QString updateCompletedText()
{
    return translated(QT_TRANSLATE_NOOP("UpdateRepair", "Update Completed"));
}

QString updateErrorText()
{
    return translated(QT_TRANSLATE_NOOP("UpdateRepair", "Update Error"));
}

QString callSupportText()
{
    return translated(QT_TRANSLATE_NOOP("UpdateRepair", "Do not disconnect. Retry. Call Support."));
}

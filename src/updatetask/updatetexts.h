#pragma once

#include <QCoreApplication>
#include <QString>

struct EdidResult;

// tr() for the functions of this module that belong to no QObject. All texts of an update stand in
// one translation context, so that a translator finds them in one place.
struct UpdateTexts
{
    Q_DECLARE_TR_FUNCTIONS(UpdateTask::Worker)

public:
    // Why an image of a package is refused, in an update and where a package is looked at alone.
    static QString edidFailure(const EdidResult &edid); // empty: it is good
    static QString foreignBootImage();
    static QString brokenBootImage();
    static QString closedEdid();
    // Before translation. UnreadableMicrocode has no place for the length and is shown with its
    // "%d".
    static constexpr const char *ClosedMicrocode =
        QT_TRANSLATE_NOOP("UpdateTask::Worker", "Error: failed to find microcode image");
    static constexpr const char *ClosedBitstream =
        QT_TRANSLATE_NOOP("UpdateTask::Worker", "Error: failed to find FPGA image");
    static constexpr const char *UnreadableMicrocode =
        QT_TRANSLATE_NOOP("UpdateTask::Worker", "Error: failed to read archieve %d");
    static constexpr const char *UnsentEdid = // %1: a libusb code
        QT_TRANSLATE_NOOP("UpdateTask::Worker", "Can't send EDID data to the device (err: %1)");
    static constexpr const char *UnreadableBitstream =
        QT_TRANSLATE_NOOP("UpdateTask::Worker", "Error: failed to read FPGA image: %1");
};

#include "edidwriter.h"

#include "package.h"
#include "updatetexts.h"
#include "vendorrequests.h"
#include "ziparchive.h"

#include <QDebug>

namespace {

struct Step
{
    VendorRequests request;
    const char *log;
    const char *failed; // %1: the libusb code
};

// clang-format off
const Step s_steps[] = {
    {EDID_START, "Can't initiate EDID IO access (err:",
     QT_TRANSLATE_NOOP("UpdateTask::Worker", "Can't initiate EDID IO access (err: %1)")},
    {EDID_WRITE, "Can't send EDID data to the device (err: ", UpdateTexts::UnsentEdid},
    {EDID_COMPLETE, "Can't finalize EDID IO access (err: ",
     QT_TRANSLATE_NOOP("UpdateTask::Worker", "Can't finalize EDID IO access (err: %1)")},
};
// clang-format on

} // namespace

int write_edid(libusb_device_handle *device, const UpdateReport &report, int progressFrom,
               int progressTo, const std::string &fileName, Zip &zip)
{
    ZipFile file = zip.fopen(fileName);
    if (!file) {
        qDebug() << "Can't open file";
        report.error(UpdateTexts::closedEdid());
        return -1;
    }
    const std::optional<std::string> text = read_edid_text(file);
    const int part = (progressTo - progressFrom) / 5;
    int at = progressFrom + part;
    report.progress(at);
    const EdidResult edid = parse_edid_text(text);
    const QString wrong = UpdateTexts::edidFailure(edid);
    if (!wrong.isEmpty()) {
        report.error(wrong);
        return -1;
    }

    int result = 0;
    for (const Step &step : s_steps) {
        report.progress(at += part);
        const bool carriesData = step.request == EDID_WRITE;
        result = usb::write_vendor(
            device, step.request, 0, 0, carriesData ? edid.bytes.data() : nullptr,
            carriesData ? quint16(edid.bytes.size()) : 0, usb::EdidRequestTimeout);
        if (result < 0) {
            qDebug() << step.log << result;
            report.error(UpdateTexts::tr(step.failed).arg(result));
            return -1;
        }
    }
    report.progress(at + part);
    return result;
}

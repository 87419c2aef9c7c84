#include "updateworker.h"

#include "edid.h"
#include "usbaccess.h"

#include <QDebug>

#include <sstream>

namespace {

// The text of the largest EDID that fits into one request has some 300 KiB.
constexpr std::size_t LongestText = std::size_t{16} * 1024 * 1024;

// The text of the entry as far as it can be read, or a little more than LongestText of it. A NUL
// byte cuts the piece in which it stands short.
std::string readText(ZipFile &file)
{
    std::string text;
    char piece[4096] = {};
    for (;;) {
        const int length = file.read(piece, sizeof(piece) - 1);
        if (length < 1 || text.size() > LongestText) {
            return text;
        }
        piece[length] = 0;
        text += piece;
    }
}

} // namespace

int UpdateTask::Worker::flashEdid(int progressFrom, int progressTo, const std::string &fileName,
                                  Zip &zip)
{
    const int part = (progressTo - progressFrom) / 5;
    ZipFile file = zip.fopen(fileName);
    if (!file) {
        qDebug() << "Can't open file";
        emit error(tr("Can't open EDID file"));
        return -1;
    }
    const std::string text = readText(file);

    emit progress(progressFrom + part);
    std::istringstream lines(text);
    const EdidResult edid =
        text.size() > LongestText ? EdidResult{{}, EdidFormatError} : parse_edid(lines);
    if (edid.status == EdidFormatError) {
        emit error(tr("EDID data has incorrect format"));
        return -1;
    }
    if (edid.status == EdidChecksumError) {
        emit error(tr("EDID data has incorrect checksum"));
        return -1;
    }
    // A good EDID has a block at least, so this is for a parser that changes.
    if (edid.bytes.empty()) {
        emit error(tr("EDID data is empty"));
        return -1;
    }

    emit progress(progressFrom + 2 * part);
    int result = usb::write_vendor(handle, EDID_START, 0, 0, nullptr, 0, usb::EdidRequestTimeout);
    if (result < 0) {
        return edidFailed("Can't initiate EDID IO access (err:",
                          tr("Can't initiate EDID IO access (err: %1)"), result);
    }
    emit progress(progressFrom + 3 * part);
    result = usb::write_vendor(handle, EDID_WRITE, 0, 0, edid.bytes.data(),
                               quint16(edid.bytes.size()), usb::EdidRequestTimeout);
    if (result < 0) {
        return edidFailed("Can't send EDID data to the device (err: ",
                          tr("Can't send EDID data to the device (err: %1)"), result);
    }
    emit progress(progressFrom + 4 * part);
    result = usb::write_vendor(handle, EDID_COMPLETE, 0, 0, nullptr, 0, usb::EdidRequestTimeout);
    if (result < 0) {
        return edidFailed("Can't finalize EDID IO access (err: ",
                          tr("Can't finalize EDID IO access (err: %1)"), result);
    }
    emit progress(progressFrom + 5 * part);
    return result;
}

int UpdateTask::Worker::edidFailed(const char *logText, const QString &text, int code)
{
    qDebug() << logText << code;
    emit error(text.arg(code));
    return -1;
}

#pragma once

#include "updatereport.h"
#include "vendorrequests.h"

#include <functional>
#include <string>

struct libusb_device_handle;
class Zip;
class ZipFile;

// How one kind of image goes to a running device. The error texts are those of the user, not yet
// translated; "%1" in them is the text of the libusb code, or the reason why the image cannot be
// read.
struct ImageKind
{
    VendorRequests start;
    VendorRequests write;
    VendorRequests status;
    VendorRequests complete;
    const char *startFailed;
    const char *notFound; // the package's entry cannot be opened
    const char *unreadable;
    const char *writeFailed;
    const char *completeFailed;
    QString (*codeText)(int code); // which text a libusb code gets
    const char *banner;            // for the log, once the device is ready
    int wordSize;                  // bytes; the length of every block is a multiple of it
    bool framed;                   // a header block before the image, and its CRC after it
    bool endsWhereUnreadable;      // what could be read is completed all the same
};

extern const ImageKind s_fx3Image;
extern const ImageKind s_fpgaImageV1;
extern const ImageKind s_fpgaImageV2;

// Polls a status request (of the image's kind) until the device says that it is ready. Returns 0,
// or a negative libusb code whose reason has been reported.
using StatusWait = std::function<int(VendorRequests)>;

// Streams one image of a package to the running firmware, which stores and checks it. Nothing is
// known here of what is in it.
class ImageWriter
{
public:
    // `device` is open, with its interface claimed, and stays the caller's; what is polled with
    // `waitForStatus` is the same device.
    ImageWriter(const ImageKind &imageKind, libusb_device_handle *device,
                const UpdateReport &updateReport, StatusWait waitForStatus);

    // Fills the progress from `progressFrom` to `progressTo` percent with the entry `fileName`.
    // Returns the result of the last request, or a negative value (a libusb code, or -1), whose
    // reason has been reported. Blocks until the device has stored all of it.
    int write(int progressFrom, int progressTo, const std::string &fileName, Zip &zip);

private:
    int command(VendorRequests request, const char *failure);
    int stream(ZipFile &image);
    int sendFramed(ZipFile &image);
    int sendHeader();
    int sendCrc();
    int sendBlock(const void *block, quint16 length);
    void reportUnreadable(const ZipFile &image, int length);
    void reportCode(const char *failure, int code);

    const ImageKind &kind;
    libusb_device_handle *handle;
    const UpdateReport &report;
    const StatusWait statusWait;
    int from = 0;          // percent
    int to = 0;            // percent
    quint64 imageSize = 0; // bytes; 0 when the archive does not know
    quint64 total = 0;     // bytes that the device took
    int number = 1;        // of the next block, for the log
    quint32 crc = 0;       // of what was sent, when the image is framed
};

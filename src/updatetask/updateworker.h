#pragma once

// Private to this room: what the update task's thread runs. The definition stands in a header only
// because the update sequence, the package checks, each image writer and repair mode have a source
// file each.

#include "productcatalogue.h"
#include "updatetask.h"
#include "vendorrequests.h"
#include "ziparchive.h"

#include <QObject>

struct libusb_device_handle;
class BootImage;

// Does one update at a time, all of it on the task's thread. Steps that return an int return a
// negative value on failure (a libusb code, or -1), those that return a bool return false; the step
// that fails has emitted error() with the reason, and its caller stops. Where an error does not
// stop the sequence, or a failure is silent, the step says so.
class UpdateTask::Worker : public QObject
{
    Q_OBJECT

signals:
    void progress(int value); // percent of the whole update
    void complete();
    void error(const QString &text);

public slots:
    void update(DeviceDescription description, const QString &fwFileName);

private:
    // An image on its way to the device, block by block.
    struct ImageTransfer
    {
        VendorRequests writeRequest{};
        VendorRequests statusRequest{};
        QString failure;                    // translated; %1 is the libusb code's text
        QString (*codeText)(int) = nullptr; // which text that is
        int progressFrom = 0;               // percent
        int progressTo = 0;                 // percent
        quint64 imageSize = 0;              // bytes; 0 when the archive does not know
        int block = 1;                      // number of the next one, for the log
        quint64 total = 0;                  // bytes that the device took
    };

    // Bytes of a block of any image, and of a piece of boot loader memory.
    static constexpr int BlockSize = 4096;

    // updateworker.cpp: the sequence
    void updateDevice(DeviceDescription &description, const QString &fwFileName);
    // -1 without an error for a mode that does not exist.
    int runMode(const DeviceDescription &description, Zip &zip);
    int regularUpdate(int progressFrom, Zip &zip);
    // -1 without an error for an FPGA version that does not exist.
    int flashFpga(int progressFrom, int progressTo, Zip &zip);
    int statusWait(VendorRequests request);
    int sendCommand(VendorRequests request);
    static quint64 entrySize(Zip &zip, const std::string &fileName);
    int sendBlock(ImageTransfer &transfer, const void *block, quint16 length);

    // package.cpp: is this a package, and is it for this device
    bool readProduct(Zip &zip);
    bool readProductKey(Zip &zip);
    bool checkContents(Zip &zip);
    bool checkCompatibility(const DeviceDescription &description);

    // One image each. They fill the progress from `progressFrom` to `progressTo` percent with the
    // package entry `fileName` and return the result of the last request.
    int flashFx3(int progressFrom, int progressTo, const std::string &fileName, Zip &zip);
    int flashFpgaV1(int progressFrom, int progressTo, const std::string &fileName, Zip &zip);
    int flashFpgaV2(int progressFrom, int progressTo, const std::string &fileName, Zip &zip);
    int flashEdid(int progressFrom, int progressTo, const std::string &fileName, Zip &zip);

    // flashfx3.cpp
    int streamFx3(ZipFile &image, ImageTransfer &transfer);

    // flashfpga.cpp
    int startFpga(const std::string &fileName, Zip &zip, ZipFile &image);
    ImageTransfer fpgaTransfer(int progressFrom, int progressTo, quint64 imageSize);
    int sendFpgaHeader(quint64 imageSize);
    int streamFpgaV1(ZipFile &image, ImageTransfer &transfer, quint32 &crc);
    int streamFpgaV2(ZipFile &image, ImageTransfer &transfer);
    void fpgaReadFailed(const ZipFile &image);
    int completeFpga();

    // flashedid.cpp
    int edidFailed(const char *logText, const QString &text, int code);

    // repairmode.cpp
    int repairMode(Zip &zip, const DeviceDescription &description);
    bool loadSandbox(Zip &zip);
    bool loadSections(BootImage &image, quint64 imageSize);
    bool loadSection(quint32 address, const std::vector<quint8> &data);
    bool loadPiece(quint32 address, const quint8 *piece, quint16 length);
    bool startSandbox(quint32 entry);
    int openSandbox(const DeviceDescription &description);

    libusb_device_handle *handle = nullptr; // of the device being updated; repair mode replaces it
    bool packageIncomplete = false; // a required entry is missing (fine in an EDID-only package)
    bool edidPresent = false;       // the package holds the product's EDID
    bool reserved = false;
    std::string product; // the key into the catalogue
    const ProductInfo *productInfo = nullptr;
    std::set<ProductId> sandboxIds; // under which repair mode looks for the device
};

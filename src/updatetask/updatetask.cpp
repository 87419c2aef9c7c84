#include "updatetask.h"

#include "edidwriter.h"
#include "imagewriter.h"
#include "package.h"
#include "pause.h"
#include "platforminstaller.h"
#include "sandboxloader.h"
#include "updatereport.h"
#include "usbaccess.h"
#include "vendorrequests.h"
#include "ziparchive.h"

#include <QDebug>

#include <iostream>

// Does one update at a time, all of it on the task's thread. Steps that return an int return a
// negative value on failure (a libusb code, or -1), those that return a bool return false; the step
// that fails has emitted error() with the reason, and its caller stops. Where an error does not
// stop the sequence, or a failure is silent, the step says so.
class UpdateTask::Worker : public QObject
{
    Q_OBJECT

public:
    Worker(UpdateGate &taskGate, const ProductCatalogue &known) : gate(taskGate), catalogue(known)
    {
    }
    ~Worker() override { usb::close_unclaimed_device(); }

signals:
    void progress(int value); // percent of the whole update
    void complete();
    void error(const QString &text);

public slots:
    void update(DeviceDescription description, const QString &fwFileName);

private:
    void updateDevice(DeviceDescription &description, const QString &fwFileName);
    bool acceptPackage(Zip &zip, const DeviceDescription &description);
    // -1 without an error for a mode that does not exist.
    int runMode(const DeviceDescription &description, Zip &zip);
    int regularUpdate(int progressFrom, Zip &zip);
    // -1 without an error for an FPGA version that does not exist.
    int flashFpga(int progressFrom, int progressTo, Zip &zip);

    // One image each. They fill the progress from `progressFrom` to `progressTo` percent with the
    // package entry `fileName` and return the result of the last request.
    int flashFx3(int progressFrom, int progressTo, const std::string &fileName, Zip &zip);
    int flashFpgaV1(int progressFrom, int progressTo, const std::string &fileName, Zip &zip);
    int flashFpgaV2(int progressFrom, int progressTo, const std::string &fileName, Zip &zip);
    int flashEdid(int progressFrom, int progressTo, const std::string &fileName, Zip &zip);
    int writeImage(const ImageKind &kind, int progressFrom, int progressTo,
                   const std::string &fileName, Zip &zip);
    // Polls `request` until the device says that it is ready.
    int statusWait(VendorRequests request);

    int repairMode(Zip &zip, const DeviceDescription &description);
    int openSandbox(const DeviceDescription &description);

    UpdateGate &gate;
    const ProductCatalogue &catalogue;
    const UpdateReport report{[this](int percent) { emit progress(percent); },
                              [this](const QString &text) { emit error(text); }};
    usb::ClaimedDevice handle;      // of the device being updated; repair mode replaces it
    bool packageIncomplete = false; // a required entry is missing (fine in an EDID-only package)
    bool edidPresent = false;       // the package holds the product's EDID
    bool reserved = false;
    std::string product; // the key into the catalogue
    const ProductInfo *productInfo = nullptr;
    std::set<ProductId> sandboxIds; // under which repair mode looks for the device
};

void UpdateTask::Worker::update(DeviceDescription description, const QString &fwFileName)
{
    if (!gate.enter()) {
        return;
    }
    qDebug() << "Updater start";
    updateDevice(description, fwFileName);
    gate.leave();
    emit complete();
}

void UpdateTask::Worker::updateDevice(DeviceDescription &description, const QString &fwFileName)
{
    Zip zip(fwFileName.toStdString());
    if (zip) {
        emit progress(1);
    }
    if (!acceptPackage(zip, description)) {
        return;
    }
    emit progress(2);

    handle = usb::claim_device(description);
    if (!handle) {
        emit error(tr("Cannot Access Device. Administrative privilegies may be required"));
        return;
    }
    const int result = runMode(description, zip);
    handle = usb::ClaimedDevice(); // reset() would keep the record, and with it the libusb device
    if (result >= 0) {
        emit progress(100);
    }
}

// Reads what the package is; it has to be one for this device.
bool UpdateTask::Worker::acceptPackage(Zip &zip, const DeviceDescription &description)
{
    const Package package = read_package(zip, catalogue);
    packageIncomplete = !package.missing.isEmpty();
    edidPresent = package.edidPresent;
    reserved = false;
    product = package.productKey;
    productInfo = package.product;
    if (!package.refusal.isEmpty()) {
        emit error(package.refusal);
        return false;
    }
    sandboxIds = productInfo->sandboxIds;
    const ProductId device{description.vendorId, description.productId};
    if (!package_fits(*productInfo, device, description.mode)) {
        emit error(tr("Selected device and firmware incompatible"));
        return false;
    }
    return true;
}

int UpdateTask::Worker::runMode(const DeviceDescription &description, Zip &zip)
{
    switch (description.mode) {
    case DeviceMode::Normal:
        return regularUpdate(2, zip);
    case DeviceMode::SoftRepair:
    case DeviceMode::HardRepair:
        return repairMode(zip, description);
    default:
        return -1;
    }
}

int UpdateTask::Worker::regularUpdate(int progressFrom, Zip &zip)
{
    const int steps = (edidPresent ? 1 : 0) + (packageIncomplete ? 0 : 2);
    qDebug() << "Update steps:" << steps;
    if (steps == 0) {
        return 0;
    }
    const int share = (100 - progressFrom) / steps;
    int at = progressFrom;
    int result = 0;

    if (!packageIncomplete) {
        result = flashFx3(at, at + share, productInfo->fx3Name, zip);
        if (result < 0) {
            return result;
        }
        pause_seconds(1);
        result = flashFpga(at + share, at + 2 * share, zip);
        if (result < 0) {
            return result;
        }
        at += 2 * share;
    }
    if (!edidPresent) {
        return result;
    }
    pause_seconds(1);
    return flashEdid(at, at + share, productInfo->edidName, zip);
}

int UpdateTask::Worker::flashFpga(int progressFrom, int progressTo, Zip &zip)
{
    switch (productInfo->fpgaVersion) {
    case 0:
        return flashFpgaV1(progressFrom, progressTo, productInfo->fpgaName, zip);
    case 1:
        return flashFpgaV2(progressFrom, progressTo, productInfo->fpgaName, zip);
    default:
        return -1;
    }
}

int UpdateTask::Worker::flashFx3(int progressFrom, int progressTo, const std::string &fileName,
                                 Zip &zip)
{
    return writeImage(s_fx3Image, progressFrom, progressTo, fileName, zip);
}

int UpdateTask::Worker::flashFpgaV1(int progressFrom, int progressTo, const std::string &fileName,
                                    Zip &zip)
{
    return writeImage(s_fpgaImageV1, progressFrom, progressTo, fileName, zip);
}

int UpdateTask::Worker::flashFpgaV2(int progressFrom, int progressTo, const std::string &fileName,
                                    Zip &zip)
{
    return writeImage(s_fpgaImageV2, progressFrom, progressTo, fileName, zip);
}

int UpdateTask::Worker::flashEdid(int progressFrom, int progressTo, const std::string &fileName,
                                  Zip &zip)
{
    return write_edid(handle.get(), report, progressFrom, progressTo, fileName, zip);
}

int UpdateTask::Worker::writeImage(const ImageKind &kind, int progressFrom, int progressTo,
                                   const std::string &fileName, Zip &zip)
{
    const auto poll = [this](VendorRequests request) { return statusWait(request); };
    return ImageWriter(kind, handle.get(), report, poll)
        .write(progressFrom, progressTo, fileName, zip);
}

// A device that keeps saying that it is busy is waited for: nobody knows better than the device how
// long its flash memory takes.
int UpdateTask::Worker::statusWait(VendorRequests request)
{
    for (;;) {
        quint8 ready = 0; // cleared before each poll: an answer of no bytes means busy
        const int result = usb::read_vendor(handle.get(), request, 0, 0, &ready, sizeof(ready));
        if (result < 0) {
            // The same text for microcode.
            emit error(tr("Error: failed to connect to FPGA: %1").arg(usb::error_name(result)));
            return result;
        }
        if (ready != 0) {
            return 0;
        }
    }
}

// A device in repair mode has nothing but a boot loader. The sandbox is loaded into the
// controller's RAM and started; the device comes back under another identity and can then be
// updated like a running one.
//
// A failure while the sandbox is loaded returns 0, and so does one in the update that follows: the
// bar then shows 100 percent after the error, and the error text is what counts. Only a device that
// is not found again makes the repair fail.
int UpdateTask::Worker::repairMode(Zip &zip, const DeviceDescription &description)
{
    if (!load_sandbox(handle.get(), report, productInfo->sandboxName, zip)) {
        return 0;
    }
    pause_seconds(3); // the device leaves the bus and comes back
    handle.reset();

    const int opened = openSandbox(description);
    if (opened < 0) {
        return opened;
    }
    pause_seconds(1);
    regularUpdate(15, zip);
    return 0;
}

// Opens the device under one of the identities that its sandbox may have, at whatever address it
// came back, and installs a driver for it where that is needed.
int UpdateTask::Worker::openSandbox(const DeviceDescription &description)
{
    const auto open = [this, &description](DeviceDescription &sandbox) {
        handle = usb::ClaimedDevice(usb::init_device(sandbox), usb::GiveBack{description});
        return handle != nullptr;
    };
    bool noInstaller = false;
    DeviceDescription sandbox = description;
    for (const ProductId &id : sandboxIds) {
        sandbox.vendorId = id.vendorId;
        sandbox.productId = id.productId;
        sandbox.interfaceNumber = 0;
        sandbox.deviceAddress = DeviceDescription::AnyAddress;
        sandbox.forgetDevice();

        if (open(sandbox)) {
            return 0;
        }
        const int installed = usb::install_driver(id.vendorId, id.productId, 0, false, nullptr);
        if (installed == usb::InstallNeedsAdmin) {
            emit error(
                tr("Access Denied: Administrative privilegies are required to access the device"));
            return -1;
        }
        if (installed != usb::DriverReady && usb::has_driver_installer()) {
            emit error(tr("Error: Failed to install driver"));
            return -1;
        }
        if (installed != usb::DriverReady) {
            // Nothing could be installed on this platform anyway: the device may well be there
            // under the next identity.
            noInstaller = true;
            continue;
        }
        if (open(sandbox)) {
            return 0;
        }
    }
    emit error(noInstaller ? tr("Error: Failed to install driver")
                           : tr("Error: Failed to init device for repair"));
    return -1;
}

UpdateTask::UpdateTask(QObject *parent, const ProductCatalogue &catalogue) : QObject(parent)
{
    auto *worker = new Worker(gate, catalogue);
    worker->moveToThread(&workerThread);
    connect(&workerThread, &QThread::finished, worker, &Worker::deleteLater);
    connect(this, &UpdateTask::start, worker, &Worker::update);
    connect(worker, &Worker::progress, this, &UpdateTask::progress);
    connect(worker, &Worker::complete, this, &UpdateTask::complete);
    connect(worker, &Worker::error, this, &UpdateTask::error);
    connect(
        worker, &Worker::error, this, [this](const QString &text) { gate.noteError(text); },
        Qt::DirectConnection);
    workerThread.start();
}

UpdateTask::~UpdateTask()
{
    const bool underWay = gate.close();
    if (underWay) {
        std::clog << "Update under way, waiting for its end" << std::endl;
    }
    workerThread.quit();
    workerThread.wait();
    if (underWay) {
        const QStringList errors = gate.errors();
        const QString text = errors.isEmpty() ? QStringLiteral("Update ended")
                                              : "Update failed: " + errors.join("; ");
        std::clog << text.toStdString() << std::endl;
    }
}

#include "updatetask.moc"

#include "scriptedwdi.h"

#include <cstdlib>
#include <cstring>

using namespace usb::wdi;

namespace scriptedwdi {
namespace {

Script s_script;
QList<QByteArray> s_calls;
int s_liveLists = 0;

QByteArray quoted(const char *text)
{
    return text == nullptr ? QByteArray("null") : "'" + QByteArray(text) + "'";
}

const char *zeroOrNot(bool isZero)
{
    return isZero ? "zero" : "NOT ZERO";
}

QByteArray zeroOrNot(const PrepareDriverOptions &options)
{
    return zeroOrNot(options.driverType == 0 && options.vendorName == nullptr &&
                     options.deviceGuid == nullptr && options.disableCat == 0 &&
                     options.disableSigning == 0 && options.certSubject == nullptr &&
                     options.useWcidDriver == 0 && options.externalInf == 0);
}

QByteArray zeroOrNot(const InstallDriverOptions &options)
{
    return zeroOrNot(options.hWnd == nullptr && options.installFilterDriver == 0 &&
                     options.pendingInstallTimeout == 0);
}

QByteArray described(const DeviceInfo &device)
{
    const bool restIsZero = device.next == nullptr && device.driver == nullptr &&
                            device.compatibleId == nullptr && device.upperFilter == nullptr &&
                            device.driverVersion == 0;
    return QByteArray::number(device.vid, 16) + ":" + QByteArray::number(device.pid, 16) +
           " composite=" + QByteArray::number(device.isComposite) +
           " mi=" + QByteArray::number(device.mi) + " desc=" + quoted(device.desc) +
           " id=" + quoted(device.deviceId) + " hw=" + quoted(device.hardwareId) +
           " rest=" + zeroOrNot(restIsZero);
}

char *copied(const char *text)
{
    return text == nullptr ? nullptr : strdup(text);
}

const char *CAPSO_WDI_CALL strError(int result)
{
    if (!s_script.hasErrorTexts) {
        return nullptr;
    }
    switch (result) {
    case 0:
        return "Success";
    case -1:
        return "Input/output error";
    case -15:
        return "Operation requires elevated privileges";
    default:
        return "Other error";
    }
}

int CAPSO_WDI_CALL setLogLevel(int level)
{
    s_calls << "set_log_level " + QByteArray::number(level);
    return 0;
}

int CAPSO_WDI_CALL createList(DeviceInfo **list, CreateListOptions *options)
{
    s_calls << "create_list all=" + QByteArray::number(options->listAll) +
                   " hubs=" + QByteArray::number(options->listHubs) +
                   " trim=" + QByteArray::number(options->trimWhitespaces);
    if (s_script.listings.isEmpty()) {
        s_calls << "create_list WAS NOT IN THE SCRIPT";
        return -1;
    }
    const Listing listing = s_script.listings.takeFirst();
    if (listing.result != 0) {
        return listing.result;
    }

    DeviceInfo **end = list;
    *end = nullptr;
    for (const Device &device : listing.devices) {
        *end = new DeviceInfo{};
        (*end)->vid = device.vid;
        (*end)->pid = device.pid;
        (*end)->isComposite = device.mi != 0;
        (*end)->mi = device.mi;
        (*end)->desc = copied(device.desc);
        (*end)->driver = copied("usbdriver");
        (*end)->deviceId = copied(device.deviceId);
        (*end)->hardwareId = copied(device.hardwareId);
        (*end)->driverVersion = 7;
        end = &(*end)->next;
    }
    ++s_liveLists;
    return 0;
}

int CAPSO_WDI_CALL destroyList(DeviceInfo *list)
{
    s_calls << "destroy_list";
    --s_liveLists;
    while (list != nullptr) {
        DeviceInfo *device = list;
        list = device->next;
        for (char *text : {device->desc, device->driver, device->deviceId, device->hardwareId}) {
            std::free(text);
        }
        delete device;
    }
    return 0;
}

int CAPSO_WDI_CALL prepareDriver(DeviceInfo *device, const char *path, const char *infName,
                                 PrepareDriverOptions *options)
{
    s_calls << "prepare_driver " + described(*device) + " path=" + quoted(path) +
                   " inf=" + quoted(infName) + " options=" + zeroOrNot(*options);
    return s_script.prepareResult;
}

int CAPSO_WDI_CALL installDriver(DeviceInfo *device, const char *path, const char *infName,
                                 InstallDriverOptions *options)
{
    s_calls << "install_driver " + described(*device) + " path=" + quoted(path) +
                   " inf=" + quoted(infName) + " options=" + zeroOrNot(*options);
    if (s_script.onInstall) {
        s_script.onInstall();
    }
    if (s_script.installResults.isEmpty()) {
        s_calls << "install_driver WAS NOT IN THE SCRIPT";
        return -1;
    }
    return s_script.installResults.takeFirst();
}

} // namespace

void begin(const Script &script)
{
    s_script = script;
    s_calls.clear();
    s_liveLists = 0;
}

QList<QByteArray> calls()
{
    return s_calls;
}

int liveLists()
{
    return s_liveLists;
}

Functions functions()
{
    return {strError, setLogLevel, createList, destroyList, prepareDriver, installDriver};
}

} // namespace scriptedwdi

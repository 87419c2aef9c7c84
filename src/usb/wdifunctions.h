#pragma once

#include <cstdint>

// libwdi's public interface, declared here because no package registry that our users have carries
// it: the program opens libwdi.dll at run time. Nothing here needs Windows, so the code that calls
// these functions is tested on any platform with a scripted table.

#ifdef _WIN32
#define CAPSO_WDI_CALL __stdcall
#else
#define CAPSO_WDI_CALL
#endif

namespace usb::wdi {

using Bool = int; // Windows' BOOL

enum Result {
    Success = 0,
    NeedsAdmin = -15,
};

enum LogLevel {
    LogDebug = 0, // up to 4, which is silence
};

// A USB device, or one interface of a composite device. Texts are UTF-8 and may be null. In a list
// from createList they belong to the list.
struct DeviceInfo
{
    DeviceInfo *next;
    unsigned short vid;
    unsigned short pid;
    Bool isComposite;
    unsigned char mi; // interface number; 0 unless composite
    char *desc;
    char *driver;
    char *deviceId;
    char *hardwareId;
    char *compatibleId;
    char *upperFilter;
    std::uint64_t driverVersion;
};

struct CreateListOptions
{
    Bool listAll; // devices that have a driver too
    Bool listHubs;
    Bool trimWhitespaces;
};

struct PrepareDriverOptions
{
    int driverType; // 0 is WinUSB
    char *vendorName;
    char *deviceGuid;
    Bool disableCat;
    Bool disableSigning;
    char *certSubject;
    Bool useWcidDriver;
    Bool externalInf;
};

struct InstallDriverOptions
{
    void *hWnd; // parent of the progress window
    Bool installFilterDriver;
    std::uint32_t pendingInstallTimeout; // 0 is libwdi's default
};

// The records are libwdi's memory layout, which Windows programs of 64 bits have had unchanged.
constexpr bool s_has64BitPointers = sizeof(void *) == 8;
static_assert(!s_has64BitPointers || sizeof(DeviceInfo) == 80, "wdi_device_info is 80 bytes");
static_assert(sizeof(CreateListOptions) == 12, "wdi_options_create_list is 12 bytes");
static_assert(!s_has64BitPointers || sizeof(PrepareDriverOptions) == 48,
              "wdi_options_prepare_driver is 48 bytes");
static_assert(!s_has64BitPointers || sizeof(InstallDriverOptions) == 16,
              "wdi_options_install_driver is 16 bytes");

// The six functions that installation needs, each wdi_ and its name in libwdi. Those that return an
// int return Success or a negative Result. A path of null is libwdi's default folder.
struct Functions
{
    const char *(CAPSO_WDI_CALL *strError)(int result);
    int(CAPSO_WDI_CALL *setLogLevel)(int level);
    int(CAPSO_WDI_CALL *createList)(DeviceInfo **list, CreateListOptions *options);
    int(CAPSO_WDI_CALL *destroyList)(DeviceInfo *list);
    int(CAPSO_WDI_CALL *prepareDriver)(DeviceInfo *device, const char *path, const char *infName,
                                       PrepareDriverOptions *options);
    int(CAPSO_WDI_CALL *installDriver)(DeviceInfo *device, const char *path, const char *infName,
                                       InstallDriverOptions *options);
};

} // namespace usb::wdi

#include "devicedescription.h"
#include "qtcompat.h"
#include "updaterepair.h"
#include "usbaccess.h"

#include <QApplication>

#include <libusb.h>

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <iostream>

namespace {

// libusb's default context, which every libusb call of the program uses. It outlives the dialog and
// the application object. Without one (no USB bus, say) the program runs all the same and finds no
// device.
class LibusbContext
{
public:
    LibusbContext() : ready(libusb_init(nullptr) >= 0)
    {
        usb::set_context_ready(ready);
        if (ready) {
            setWarningLevel();
        }
    }
    LibusbContext(const LibusbContext &) = delete;
    LibusbContext &operator=(const LibusbContext &) = delete;
    ~LibusbContext()
    {
        if (ready) {
            libusb_exit(nullptr);
        }
    }

private:
    static void setWarningLevel()
    {
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif
        libusb_set_debug(nullptr, LIBUSB_LOG_LEVEL_WARNING);
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
    }

    bool ready;
};

int run(int argc, char **argv)
{
    const LibusbContext context;
    QApplication application(argc, argv);
    qtcompat::use_high_dpi_pixmaps();
    // The dialog draws nothing with OpenGL. Unless told so, Qt loads the system's OpenGL driver for
    // the first window, which takes longer than all that the dialog itself does until it is seen.
    QCoreApplication::setAttribute(Qt::AA_ForceRasterWidgets);

    qRegisterMetaType<DeviceDescription>("DeviceDescription");
    qtcompat::register_alias<unsigned char>("uint8_t");

    UpdateRepair dialog;
    dialog.show();
    return QApplication::exec();
}

} // namespace

int main(int argc, char **argv)
{
    // An exception that nobody catches need not unwind the stack: it is caught here so that the
    // devices and libusb are given back in any case.
    try {
        return run(argc, argv);
    } catch (const std::exception &reason) {
        std::cerr << "capso-config: " << reason.what() << std::endl;
        return EXIT_FAILURE;
    } catch (...) {
        std::cerr << "capso-config: unknown exception" << std::endl;
        return EXIT_FAILURE;
    }
}

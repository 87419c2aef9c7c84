#include "context.h"
#include "devicedescription.h"
#include "processstartup.h"
#include "qtcompat.h"
#include "updaterepair.h"

#include <QApplication>

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <iostream>

namespace {

int run(int argc, char **argv)
{
    const usb::Context context(usb::Context::Messages::Warnings);
    qtcompat::use_high_dpi_scaling<QApplication>();
    platform::drop_toolkit_options(argc, argv);
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
        platform::prepare_process();
        return run(argc, argv);
    } catch (const std::exception &reason) {
        std::cerr << "capso-config: " << reason.what() << std::endl;
        return EXIT_FAILURE;
    } catch (...) {
        std::cerr << "capso-config: unknown exception" << std::endl;
        return EXIT_FAILURE;
    }
}

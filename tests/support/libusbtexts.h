#pragma once

#include <QString>

// libusb's sentence for one of its codes, in the words of the version that the test runs with.
QString libusbText(int code);
